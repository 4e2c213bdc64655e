#pragma once

#include <chrono>
#include <string>

#include "tools/backend/fault.h"

namespace tarvel_backend {

// A request that has ended, for the log. A plain value.
struct EndedRequest {
  std::string client;  // Its address.
  std::string method;
  std::string target;
  std::string outcome;  // The status, "reset", "hung", or "cut": the client left before the answer.
  Fault fault;
  std::chrono::milliseconds taken{0};
};

// Returns "192.0.2.1 GET /lbs/conf.jsp 503 in 300 ms, fault: delay 300 ms, status 503".
std::string ToText(const EndedRequest& request);

// Returns the local time of day as "15:04:05.123", as the library's log has it.
std::string ToClockText(std::chrono::system_clock::time_point time);

// Returns the text on one line that a terminal can show: other bytes are written as "\x1b", and the
// rest of a long text is left out.
std::string Printable(const std::string& text);

}  // namespace tarvel_backend
