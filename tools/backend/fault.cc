#include "tools/backend/fault.h"

#include <vector>

#include "base/text/strings.h"

namespace tarvel_backend {

namespace {

constexpr int kLongestDelay = 3'600'000;  // An hour, in milliseconds.
constexpr int kLowestStatus = 200;
constexpr int kHighestStatus = 599;

bool IsSet(const CheckedJson& members, const char* key) {
  const auto found = members.Find(key);
  return found && found->Boolean();
}

}  // namespace

Fault ReadFault(const CheckedJson& members) {
  members.ObjectOf({"delay_ms", "hang", "reset", "status", "malformed"});
  Fault fault;
  if (const auto delay = members.Find("delay_ms")) {
    fault.delay = std::chrono::milliseconds(static_cast<int>(delay->Number(0, kLongestDelay)));
  }
  if (const auto status = members.Find("status")) {
    fault.status = static_cast<int>(status->Number(kLowestStatus, kHighestStatus));
  }
  fault.hang = IsSet(members, "hang");
  fault.reset = IsSet(members, "reset");
  fault.malformed = IsSet(members, "malformed");
  return fault;
}

std::string ToText(const Fault& fault) {
  std::vector<std::string> texts;
  if (fault.delay.count() > 0) {
    texts.push_back("delay " + std::to_string(fault.delay.count()) + " ms");
  }
  if (fault.hang) texts.emplace_back("hang");
  if (fault.reset) texts.emplace_back("reset");
  if (fault.status) texts.push_back("status " + std::to_string(*fault.status));
  if (fault.malformed) texts.emplace_back("malformed");
  return zo_base::Join(texts, ", ");
}

}  // namespace tarvel_backend
