#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/backend/checked_json.h"

namespace tarvel_backend {

// The faults of one request.
struct Fault {
  std::chrono::milliseconds delay{0};  // Before the other faults.
  bool hang = false;                   // Never answer while the client waits.
  bool reset = false;                  // Reset the connection instead of answering.
  std::optional<int> status = {};      // Replaces the right one.
  bool malformed = false;              // Leave the second half of the body out.
};

// Throws std::runtime_error for a member that is unknown or has a wrong value.
Fault ReadFault(const CheckedJson& members);

// Returns "delay 300 ms, status 503"; empty without a fault.
std::string ToText(const Fault& fault);

}  // namespace tarvel_backend
