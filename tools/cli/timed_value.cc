#include "tools/cli/timed_value.h"

#include <cstdlib>

#include "tools/cli/argument_checks.h"

namespace tarvel_cli {
namespace {

constexpr double kLongestTime = 3'600;  // Seconds.

std::optional<TimedValue> Read(const std::string& text) {
  const auto colon = text.find(':');
  if (colon == std::string::npos) return std::nullopt;
  const auto seconds = ReadSeconds(text.substr(0, colon));
  if (!seconds) return std::nullopt;
  return TimedValue{*seconds, text.substr(colon + 1)};
}

std::string Expected(const char* form, const std::string& text) {
  return "expected " + std::string(form) + " with 0 to 3600 seconds, not " + text;
}

}  // namespace

std::optional<double> ReadSeconds(const std::string& text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) {
    return std::nullopt;
  }
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || seconds > kLongestTime) return std::nullopt;
  return seconds;
}

std::string CheckNetworkChange(const std::string& text) {
  const auto change = Read(text);
  const bool is_good =
      change && (change->value == "any" || change->value == "4" || change->value == "6");
  return is_good ? "" : Expected("SECONDS:any, SECONDS:4 or SECONDS:6", text);
}

std::string CheckTokenChange(const std::string& text) {
  const auto change = Read(text);
  if (!change) return Expected("SECONDS:KEY", text);
  const std::string wrong = CheckText(change->value);
  return wrong.empty() ? "" : "the key is wrong: " + wrong;
}

std::vector<TimedValue> ReadTimedValues(const std::vector<std::string>& texts) {
  std::vector<TimedValue> values;
  values.reserve(texts.size());
  for (const std::string& text : texts) values.push_back(Read(text).value());
  return values;
}

}  // namespace tarvel_cli
