#pragma once

#include <cstdint>
#include <string>

#include "tools/cli/client_options.h"

namespace tarvel_cli {

// The records that this process adds to the log. Each look reads only what has been added since the
// last one: a log of earlier runs may be long.
//
// Threads: one. Takes no lock, so the library may run.
class OwnLog {
 public:
  // Created before the environment starts.
  explicit OwnLog(const ClientOptions& options);

  // Returns why no more comes from the library. Returns an empty string while something may come:
  // an update or a request is under way, or has not begun.
  std::string WhyNothingComes();

 private:
  void ReadAdded();

  const std::string path_;
  std::int64_t read_ = 0;  // Bytes of the file so far.
  std::string text_;       // What has been added to it.
};

}  // namespace tarvel_cli
