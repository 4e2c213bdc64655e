#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarvel_cli {

// What happens so many seconds after the start: "SECONDS:VALUE" on the command line. A plain value.
struct TimedValue {
  double seconds = 0;
  std::string value;
};

// Reads digits with at most one point. Returns nullopt for anything else, and for more than an
// hour.
std::optional<double> ReadSeconds(const std::string& text);

// These return an empty string for a good argument, and for another one what is wrong with it.
std::string CheckNetworkChange(const std::string& text);  // "SECONDS:FAMILY".
std::string CheckTokenChange(const std::string& text);    // "SECONDS:KEY".

// Reads arguments that have been checked.
std::vector<TimedValue> ReadTimedValues(const std::vector<std::string>& texts);

}  // namespace tarvel_cli
