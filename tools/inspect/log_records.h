#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace tarvel_inspect {

// One record of the library's log. A plain value; its views are into the text that it was read
// from.
struct LogRecord {
  std::int64_t at = 0;     // Milliseconds since 1970, local time read as the machine's.
  std::string_view stamp;  // The time as it stands in the log: "11-24 16:09:31.738".
  std::int32_t process = 0;
  std::string_view thread;  // Number of the thread, which names repeat.
  std::string_view text;    // The message, with the lines that follow its first one.
};

// Reads all records in the order of the text. What stands before the first one is left out.
// Lines of a server's answer that look like records are part of the record with the answer. The log
// has no year: `newest` is a moment that no record is much later than, in milliseconds since 1970.
std::vector<LogRecord> ReadRecords(std::string_view text, std::int64_t newest);

}  // namespace tarvel_inspect
