#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "base/json/json11.h"

namespace tarvel_cli {

// Writes events to standard output, one per line: as text for people, or as a JSON object for
// programs. Each has the seconds since the printer was created.
//
// When standard output can't be written any more, the process gets SIGPIPE, which StopSignals has
// blocked.
// Threads: any; the lines of two threads never mix.
class Printer {
 public:
  explicit Printer(bool json) : json_(json) {}

  // Prints a record of the library's log, which may have several lines.
  void PrintLog(const std::string& record);

  void Print(const std::string& event, const std::string& text,
             zo_base::json11::Json::object fields);

 private:
  using Clock = std::chrono::steady_clock;

  const bool json_;
  const Clock::time_point start_ = Clock::now();
  std::mutex mutex_;  // Of standard output.
};

}  // namespace tarvel_cli
