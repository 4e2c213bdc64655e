#include "tools/inspect/log_records.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "base/text/numbers.h"
#include "tools/inspect/moments.h"

namespace tarvel_inspect {
namespace {

constexpr std::string_view kStampForm = "00-00 00:00:00.000";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool HasForm(std::string_view text, std::string_view form) {
  return text.size() >= form.size() &&
         std::equal(form.begin(), form.end(), text.begin(),
                    [](char wanted, char c) { return wanted == '0' ? IsDigit(c) : wanted == c; });
}

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
  const auto at = stamps.Read(record.stamp);
  if (!at) return std::nullopt;
  record.at = *at;
  return record;
}

// Without the line ends before `end`.
void ExtendTo(const char* end, std::string_view& text) {
  text = {text.data(), static_cast<std::size_t>(end - text.data())};
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
}

using Writer = std::pair<std::int32_t, std::string_view>;  // Process and thread.

Writer WriterOf(const LogRecord& record) { return {record.process, record.thread}; }

// Whether lines behind the record's first one are from a server and may look like records. Good
// answers are JSON, and no line of JSON does.
bool HasAnswer(const LogRecord& record) {
  constexpr std::string_view kBegins[] = {"[http dns] Query hosts`s ip success = false",
                                          "[http dns] Service update complete \r",
                                          "[lbs] Update LBS \r"};
  return std::any_of(std::begin(kBegins), std::end(kBegins),
                     [&](std::string_view begin) { return record.text.starts_with(begin); });
}

// For each record, the next one of the same process and thread; the record itself without one.
std::vector<std::size_t> NextOfWriters(const std::vector<LogRecord>& records) {
  std::vector<std::size_t> next(records.size());
  std::map<Writer, std::size_t> latest;
  for (std::size_t i = records.size(); i-- > 0;) {
    const auto [place, is_last] = latest.try_emplace(WriterOf(records[i]), i);
    next[i] = std::exchange(place->second, i);
  }
  return next;
}

// A log that was cut begins inside of a record, perhaps of one with an answer. Returns where the
// line is that ends such a record, or 0 for a log that was not cut.
std::size_t EndOfCutRecord(std::string_view text, const std::vector<LogRecord>& records) {
  constexpr std::string_view kLine = "\n-----------------------\n";
  if (records.empty() || records.front().stamp.data() == text.data()) return 0;
  const std::size_t at = text.find(kLine);
  return at == std::string_view::npos ? 0 : at;
}

// Returns which records may be lines of answers: all between a record with an answer and the next
// one of its thread, which follows at once, and all in what is left of a record that was cut.
std::vector<bool> FindDoubtful(std::string_view text, const std::vector<LogRecord>& records) {
  const std::vector<std::size_t> next = NextOfWriters(records);
  const char* const cut_end = text.data() + EndOfCutRecord(text, records);
  std::vector<bool> doubtful(records.size());
  std::size_t end = 0;
  for (std::size_t i = 0; i < records.size(); ++i) {
    doubtful[i] = i < end || records[i].stamp.data() < cut_end;
    if (!doubtful[i] && HasAnswer(records[i])) end = next[i];
  }
  return doubtful;
}

// Returns the records without lines of answers. A doubtful record is real if its process and thread
// have written one that is beyond doubt: no server knows their numbers.
std::vector<LogRecord> WithoutForged(std::string_view text, std::vector<LogRecord> records) {
  const std::vector<bool> doubtful = FindDoubtful(text, records);
  if (std::count(doubtful.begin(), doubtful.end(), true) == 0) return records;
  std::set<Writer> writers;
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (!doubtful[i]) writers.insert(WriterOf(records[i]));
  }
  std::vector<LogRecord> real;
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (!doubtful[i] || writers.contains(WriterOf(records[i]))) real.push_back(records[i]);
  }
  return real;
}

}  // namespace

std::vector<LogRecord> ReadRecords(std::string_view text, std::int64_t newest) {
  StampReader stamps(newest);
  std::vector<LogRecord> records;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (auto record = ReadHead(text.substr(begin, end - begin), stamps)) records.push_back(*record);
    begin = end + 1;
  }
  records = WithoutForged(text, std::move(records));
  for (std::size_t i = 0; i < records.size(); ++i) {
    const bool is_last = i + 1 == records.size();
    ExtendTo(is_last ? text.data() + text.size() : records[i + 1].stamp.data(), records[i].text);
  }
  return records;
}

}  // namespace tarvel_inspect
