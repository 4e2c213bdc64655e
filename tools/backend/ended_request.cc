#include "tools/backend/ended_request.h"

#include <ctime>

#include "base/text/strings.h"

namespace tarvel_backend {

namespace {

constexpr std::size_t kLongestText = 2'000;  // The longest LBS request has fewer bytes.

}  // namespace

std::string Printable(const std::string& text) { return zo_base::Printable(text, kLongestText); }

std::string ToClockText(std::chrono::system_clock::time_point time) {
  const std::time_t second = std::chrono::system_clock::to_time_t(time);
  const auto since_epoch =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  std::tm local{};
  localtime_r(&second, &local);
  return zo_base::StringFormat("%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                               static_cast<int>(since_epoch.count() % 1000));
}

std::string ToText(const EndedRequest& request) {
  std::string text = request.client + ' ' + Printable(request.method) + ' ' +
                     Printable(request.target) + ' ' + request.outcome + " in " +
                     std::to_string(request.taken.count()) + " ms";
  const std::string fault = ToText(request.fault);
  if (!fault.empty()) text += ", fault: " + fault;
  return text;
}

}  // namespace tarvel_backend
