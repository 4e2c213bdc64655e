#pragma once

#include <memory>

#include "base/log.h"
#include "tests/http_agent/agent_environment.h"

namespace test_support {

// Sends to RecordedLog what the library logs while this lives, without an environment. Make it
// before the threads that log, and let it go after they have ended.
class CapturedLog {
 public:
  CapturedLog() {
    RecordedLog::Clear();
    zo_base::SetCustomLogGetter([]() -> std::shared_ptr<zo_base::ITQlogWriter> {
      static const auto writer = std::make_shared<zo_base::TarvelCustomLog>(RecordedLog::Take);
      return writer;
    });
  }
  ~CapturedLog() { zo_base::SetCustomLogGetter(nullptr); }
};

}  // namespace test_support
