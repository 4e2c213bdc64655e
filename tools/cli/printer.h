#pragma once

#include <chrono>
#include <string>

#include "base/json/json11.h"

namespace tarvel_cli {

// Writes events to standard output, one per line: as text for people, or as a JSON object for
// programs. Each has the seconds since the printer was created.
//
// When standard output can't be written any more, the process gets SIGPIPE, which StopSignals has
// blocked, so that every wait ends.
//
// Threads: any; the lines of two threads never mix.
class Printer {
 public:
  explicit Printer(bool json) : json_(json) {}

  // Prints a record of the library's log, which may have several lines.
  void PrintLog(const std::string& record);
  // Prints several lines for people, without the event's name and time. They must be printable.
  void PrintBlock(const std::string& event, const std::string& lines,
                  zo_base::json11::Json::object fields);
  // Prints the last event. Call it when the environment has ended.
  void PrintExit();

  void Print(const std::string& event, const std::string& text,
             zo_base::json11::Json::object fields);

 private:
  using Clock = std::chrono::steady_clock;

  double Seconds() const;

  const bool json_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace tarvel_cli
