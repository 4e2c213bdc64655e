#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarvel_inspect {

// The text of a client's log: the log file, and behind it what its companion holds. A plain value.
struct LogText {
  std::string text;
  std::int64_t log_bytes = -1;        // Of the file; -1 without one.
  std::int64_t companion_bytes = -1;  // Of the text in the companion; -1 without one.
  std::int64_t written_at = 0;        // The later of both files, milliseconds since 1970.
  std::vector<std::int32_t> writers;  // Processes that hold the companion now.
  std::vector<std::string> problems;  // Sentences about what could not be read.
};

// Whether there is a log or a companion, readable or not.
bool HoldsLog(const std::string& directory);

// Reads the log in `directory`. Takes no lock and changes nothing, so the client may be running.
// Leaves out the first `skipped` bytes of the file, unless it has been cut below that since.
LogText ReadLog(const std::string& directory, std::size_t skipped = 0);

// The length of the log file in bytes; 0 without one.
std::size_t LengthOfLog(const std::string& directory);

}  // namespace tarvel_inspect
