#include "tools/inspect/log_records.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <set>
#include <utility>

#include "base/text/numbers.h"

namespace tarvel_inspect {
namespace {

constexpr std::int64_t kDay = 86'400'000;  // Milliseconds.
constexpr std::string_view kStampForm = "00-00 00:00:00.000";
constexpr std::size_t kMinutes = 11;  // Bytes of a stamp up to its minutes.

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool HasForm(std::string_view text, std::string_view form) {
  return text.size() >= form.size() &&
         std::equal(form.begin(), form.end(), text.begin(),
                    [](char wanted, char c) { return wanted == '0' ? IsDigit(c) : wanted == c; });
}

int NumberAt(std::string_view text, std::size_t at, std::size_t width) {
  return zo_base::ReadNumber(text.substr(at, width), 0);
}

std::tm LocalTime(std::int64_t ms) {
  const auto seconds = static_cast<std::time_t>(ms / 1'000);
  std::tm local{};
  localtime_r(&seconds, &local);
  return local;
}

// Turns stamps into moments. The system's conversion is slow, so the last minute is remembered.
class StampReader {
 public:
  explicit StampReader(std::int64_t newest) : newest_(newest), year_(LocalTime(newest).tm_year) {}

  std::int64_t Read(std::string_view stamp) {
    const std::string_view minute = stamp.substr(0, kMinutes);
    if (minute != minute_) {
      minute_ = minute;
      minute_at_ = MomentOf(minute, year_);
      if (minute_at_ > newest_ + kDay) minute_at_ = MomentOf(minute, year_ - 1);
    }
    return minute_at_ + std::int64_t{1'000} * NumberAt(stamp, 12, 2) + NumberAt(stamp, 15, 3);
  }

 private:
  static std::int64_t MomentOf(std::string_view minute, int year) {
    std::tm local{};
    local.tm_year = year;
    local.tm_mon = NumberAt(minute, 0, 2) - 1;
    local.tm_mday = NumberAt(minute, 3, 2);
    local.tm_hour = NumberAt(minute, 6, 2);
    local.tm_min = NumberAt(minute, 9, 2);
    local.tm_isdst = -1;
    return static_cast<std::int64_t>(std::mktime(&local)) * 1'000;
  }

  const std::int64_t newest_;
  const int year_;
  std::string_view minute_;
  std::int64_t minute_at_ = 0;
};

// Takes what stands before `end` off the front of `text`.
std::optional<std::string_view> TakeUntil(std::string_view& text, std::string_view end) {
  const std::size_t at = text.find(end);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(at + end.size());
  return taken;
}

// Reads "11-24 16:09:31.738 11138-140298494355328 [LV_APP][lbs service] message".
std::optional<LogRecord> ReadHead(std::string_view line, StampReader& stamps) {
  if (!HasForm(line, kStampForm) || line.size() <= kStampForm.size()) return std::nullopt;
  LogRecord record;
  record.stamp = line.substr(0, kStampForm.size());
  line.remove_prefix(kStampForm.size());
  if (!TakeUntil(line, " ")) return std::nullopt;
  const auto process = TakeUntil(line, "-");
  const auto thread = TakeUntil(line, " [");
  const auto level = TakeUntil(line, "][");
  const auto name = TakeUntil(line, "] ");
  if (!process || !thread || !level || !name) return std::nullopt;
  record.process = zo_base::ReadNumber<std::int32_t>(*process, 0);
  if (record.process <= 0 || !std::all_of(thread->begin(), thread->end(), IsDigit))
    return std::nullopt;
  record.thread = *thread;
  record.text = line;
  record.at = stamps.Read(record.stamp);
  return record;
}

// Through the end of `text`, without line ends.
void Extend(std::string_view& text, const char* end) {
  text = {text.data(), static_cast<std::size_t>(end - text.data())};
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
}

// The library logs some answers of servers as they are. Their lines may look like records, but no
// server knows the numbers of a client's process and threads.
class ForgeryGuard {
 public:
  bool Accepts(const LogRecord& record) {
    const Writer writer(record.process, record.thread);
    if (record_with_answer_ && writer != *record_with_answer_ && !writers_.contains(writer))
      return false;
    writers_.insert(writer);
    if (record_with_answer_ == writer) record_with_answer_.reset();  // So the answer is over.
    if (record.text.starts_with("[http dns] Query hosts`s ip success = ") ||
        record.text.starts_with("[lbs]ParseLBSResponse rsp:")) {
      record_with_answer_ = writer;
    }
    return true;
  }

 private:
  using Writer = std::pair<std::int32_t, std::string_view>;  // Process and thread.

  std::set<Writer> writers_;
  std::optional<Writer> record_with_answer_;
};

}  // namespace

std::vector<LogRecord> ReadRecords(std::string_view text, std::int64_t newest) {
  StampReader stamps(newest);
  ForgeryGuard guard;
  std::vector<LogRecord> records;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = text.substr(begin, end - begin);
    if (const auto record = ReadHead(line, stamps); record && guard.Accepts(*record)) {
      if (!records.empty()) Extend(records.back().text, line.data());
      records.push_back(*record);
    }
    begin = end + 1;
  }
  if (!records.empty()) Extend(records.back().text, text.data() + text.size());
  return records;
}

std::string FormatTime(std::int64_t ms_since_1970) {
  const std::tm local = LocalTime(ms_since_1970);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(text.data() + length, text.size() - length, ".%03d",
                static_cast<int>(ms_since_1970 % 1'000));
  return text.data();
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
    local.tm_isdst = -1;
    const char* const end = strptime(text.c_str(), form, &local);
    if (end != nullptr && *end == '\0')
      return static_cast<std::int64_t>(std::mktime(&local)) * 1'000;
  }
  return std::nullopt;
}

}  // namespace tarvel_inspect
