#pragma once

#include <cstddef>
#include <string>

#include "tools/cli/client_options.h"

namespace tarvel_cli {

// The records of this run, without those of earlier ones in the same log, which may be long.
//
// Threads: one. Takes no lock, so the library may run.
class OwnLog {
 public:
  // Created before the environment starts.
  explicit OwnLog(const ClientOptions& options);

  // Returns why no more comes from the library. Returns an empty string while something may come:
  // an update or a request is under way, or has not begun.
  std::string WhyNothingComes() const;

 private:
  const std::string directory_;
  const std::size_t skipped_;  // Bytes of earlier runs.
};

}  // namespace tarvel_cli
