#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Moments of a log: milliseconds since 1970 here, local time in the log and for people.
namespace tarvel_inspect {

// Turns the stamps of a log into moments.
class StampReader {
 public:
  // The log has no year: `newest` is a moment that no record is much later than.
  explicit StampReader(std::int64_t newest);

  // Reads "11-24 16:09:31.738", which must have this form. Nullopt for a time that doesn't exist.
  std::optional<std::int64_t> Read(std::string_view stamp);

 private:
  std::optional<std::int64_t> ReadMinute(std::string_view minute) const;

  const std::int64_t newest_;
  const int year_;
  // The system's conversion is slow, so the last minute is remembered.
  std::string_view minute_;
  std::optional<std::int64_t> minute_at_;
};

// "2026-11-24 16:09:31.738", in local time.
std::string FormatTime(std::int64_t ms_since_1970);

// How far local time is ahead of UTC then, in seconds, and the same as "UTC+01:00".
std::int64_t UtcOffset(std::int64_t ms_since_1970);
std::string UtcOffsetName(std::int64_t ms_since_1970);

// Reads a time span before `now` ("90s", "15m", "2h", "3d"), or a local time: "16:09",
// "11-24 16:09", "2026-11-24 16:09", each also with seconds. Nullopt for anything else.
std::optional<std::int64_t> ReadMoment(const std::string& text, std::int64_t now);

}  // namespace tarvel_inspect
