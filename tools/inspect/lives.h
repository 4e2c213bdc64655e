#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/inspect/log_records.h"
#include "tools/inspect/requests.h"

namespace tarvel_inspect {

// All values here are plain. Moments are milliseconds since 1970.

// What the LBS service said about one update.
struct Update {
  std::int64_t at = 0;
  enum class Result { kFresh, kFailed, kStopped, kNoURL };
  Result result = Result::kFailed;
};

// One life of the library in a process: from a start to an exit.
struct Life {
  std::int32_t process = 0;
  std::int64_t start = 0;  // Of its first record.
  std::int64_t end = 0;    // Of its last record.
  bool has_start = false;  // Else the log was cut, or is not from its begin.
  bool has_exit = false;
  bool runs = false;  // The process has the companion now.
  // The settings that the library logs at its start, in their order, without the application key.
  std::vector<std::pair<std::string, std::string>> settings;
  bool has_empty_token = false;
  std::vector<Update> updates;
  std::int64_t updates_begun = 0;
  std::int64_t links_taken = 0;
  std::string last_link;
  std::vector<std::pair<std::int64_t, std::string>> troubles;  // Of the system, such as no thread.
  std::vector<Request> requests;

  // Of the settings at the start; empty without one.
  std::string Setting(const std::string& name) const;
};

struct Lives {
  std::vector<Life> lives;   // In the order of their first records in the log.
  std::size_t left_out = 0;  // Older ones: at most 10,000 are read.
};

Lives ReadLives(const std::vector<LogRecord>& records);

}  // namespace tarvel_inspect
