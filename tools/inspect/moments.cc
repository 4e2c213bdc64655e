#include "tools/inspect/moments.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "base/text/numbers.h"
#include "base/text/strings.h"

namespace tarvel_inspect {
namespace {

constexpr std::int64_t kDay = 86'400'000;  // Milliseconds.
constexpr std::size_t kMinutes = 11;       // Bytes of a stamp up to its minutes.
constexpr int kYearsBack = 8;              // At most, for a 29 February.

int NumberAt(std::string_view text, std::size_t at, std::size_t width) {
  return zo_base::ReadNumber(text.substr(at, width), 0);
}

// Rounded down, also before 1970.
std::int64_t SecondsOf(std::int64_t ms) {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::milliseconds(ms)).count();
}

std::tm LocalTime(std::int64_t ms) {
  const auto seconds = static_cast<std::time_t>(SecondsOf(ms));
  std::tm local{};
  localtime_r(&seconds, &local);
  return local;
}

// Nullopt for a day that the month doesn't have; the system would take the next one.
std::optional<std::int64_t> MomentOfLocal(std::tm local) {
  local.tm_isdst = -1;
  std::tm normal = local;
  const std::time_t seconds = std::mktime(&normal);
  if (normal.tm_mon != local.tm_mon || normal.tm_mday != local.tm_mday) return std::nullopt;
  return std::int64_t{seconds} * 1'000;
}

}  // namespace

StampReader::StampReader(std::int64_t newest) : newest_(newest), year_(LocalTime(newest).tm_year) {}

std::optional<std::int64_t> StampReader::Read(std::string_view stamp) {
  const std::string_view minute = stamp.substr(0, kMinutes);
  if (minute != minute_) {
    minute_ = minute;
    minute_at_ = ReadMinute(minute);
  }
  const int seconds = NumberAt(stamp, 12, 2);
  if (!minute_at_ || seconds > 60) return std::nullopt;  // 60 in a leap second.
  return *minute_at_ + std::int64_t{1'000} * seconds + NumberAt(stamp, 15, 3);
}

std::optional<std::int64_t> StampReader::ReadMinute(std::string_view minute) const {
  std::tm local{};
  local.tm_mon = NumberAt(minute, 0, 2) - 1;
  local.tm_mday = NumberAt(minute, 3, 2);
  local.tm_hour = NumberAt(minute, 6, 2);
  local.tm_min = NumberAt(minute, 9, 2);
  if (local.tm_hour > 23 || local.tm_min > 59) return std::nullopt;
  for (int back = 0; back <= kYearsBack; ++back) {
    local.tm_year = year_ - back;
    const auto moment = MomentOfLocal(local);
    if (moment && *moment <= newest_ + kDay) return moment;
  }
  return std::nullopt;
}

std::string FormatTime(std::int64_t ms_since_1970) {
  const std::tm local = LocalTime(ms_since_1970);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(text.data() + length, text.size() - length, ".%03d",
                static_cast<int>(ms_since_1970 - SecondsOf(ms_since_1970) * 1'000));
  return text.data();
}

std::int64_t UtcOffset(std::int64_t ms_since_1970) { return LocalTime(ms_since_1970).tm_gmtoff; }

std::string UtcOffsetName(std::int64_t ms_since_1970) {
  const auto minutes = static_cast<long>(UtcOffset(ms_since_1970) / 60);
  return zo_base::StringFormat("UTC%c%02ld:%02ld", minutes < 0 ? '-' : '+', std::labs(minutes) / 60,
                               std::labs(minutes) % 60);
}

std::optional<std::int64_t> ReadMoment(const std::string& text, std::int64_t now) {
  if (text.size() < 2) return std::nullopt;
  constexpr std::pair<char, std::int64_t> kUnits[] = {
      {'s', 1'000}, {'m', 60'000}, {'h', 3'600'000}, {'d', kDay}};
  for (const auto& [unit, milliseconds] : kUnits) {
    if (text.back() != unit) continue;
    const auto count =
        zo_base::ReadNumber<std::int32_t>(std::string_view(text).substr(0, text.size() - 1), -1);
    if (count < 0) return std::nullopt;
    return now - count * milliseconds;
  }
  for (const char* const form : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%m-%d %H:%M:%S",
                                 "%m-%d %H:%M", "%H:%M:%S", "%H:%M"}) {
    std::tm local = LocalTime(now);
    local.tm_sec = 0;
    const char* const end = strptime(text.c_str(), form, &local);
    if (end != nullptr && *end == '\0') return MomentOfLocal(local);
  }
  return std::nullopt;
}

}  // namespace tarvel_inspect
