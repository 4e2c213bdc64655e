#pragma once

#include <tarvel/tarvel.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/log/log.h"
#include "base/process/clock.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tests/support/test_settings.h"

namespace test_support {

// One record of the log: its text without the prefix and the line end.
struct LogRecord {
  std::string text;
  std::int64_t at = 0;  // Milliseconds of the steady clock.
};

// All that the library of this process has logged since Clear. Any thread.
class RecordedLog {
 public:
  // A custom_log function.
  static void Take(const char* line) {
    constexpr std::string_view kIdent = "[ZO_TARVEL][";
    std::string_view text = line;
    text.remove_prefix(text.find("] ", text.find(kIdent) + kIdent.size()) + 2);
    text.remove_suffix(1);
    const std::lock_guard lock(mutex_);
    records_.push_back({std::string(text), zo_base::SteadyMilliseconds()});
    changed_.notify_all();
  }

  static void Clear() {
    const std::lock_guard lock(mutex_);
    records_.clear();
  }

  // Those that begin with `begin`.
  static std::vector<LogRecord> Records(std::string_view begin = "") {
    const std::lock_guard lock(mutex_);
    std::vector<LogRecord> records;
    for (const LogRecord& record : records_) {
      if (record.text.starts_with(begin)) records.push_back(record);
    }
    return records;
  }
  static std::vector<std::string> Texts(std::string_view begin = "") {
    std::vector<std::string> texts;
    for (const LogRecord& record : Records(begin)) texts.push_back(record.text);
    return texts;
  }

  // Returns false when no such record has come for so long that none will.
  [[nodiscard]] static bool Await(std::string_view text) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [&] {
      return std::ranges::find(records_, text, &LogRecord::text) != records_.end();
    });
  }

 private:
  // Never destroyed: the library may log to the very end.
  static inline auto& mutex_ = *new std::mutex;
  static inline auto& changed_ = *new std::condition_variable;
  static inline auto& records_ = *new std::vector<LogRecord>;
};

// Sends to RecordedLog what the library logs while this lives, without an environment. Make it
// before the threads that log, and destroy it after they have ended.
class CapturedLog {
 public:
  CapturedLog() {
    RecordedLog::Clear();
    zo_base::SetCustomLogGetter([]() -> std::shared_ptr<zo_base::ITQlogWriter> {
      static const auto writer = std::make_shared<zo_base::TarvelCustomLog>(RecordedLog::Take);
      return writer;
    });
  }
  ~CapturedLog() { zo_base::SetCustomLogGetter(nullptr); }
};

inline zo_tarvel::_ZOTarvelEnvironmentSettings AgentSettings() {
  auto settings = TestSettings();
  settings.custom_log = RecordedLog::Take;
  return settings;
}

// An environment that is up for the length of a scope. InvokeHttpRequest reaches its agent as a
// business class does.
class AgentEnvironment : public zo_tarvel::EnvironmentConfigGetterBase {
 public:
  explicit AgentEnvironment(
      const zo_tarvel::_ZOTarvelEnvironmentSettings& settings = AgentSettings()) {
    RecordedLog::Clear();
    id_ = zo_tarvel::StartTarvelEnvironment(settings);
    SetEnvironmentConfig(zo_tarvel::GetConfig());
  }
  ~AgentEnvironment() override { Exit(); }

  void Exit() {
    if (id_ != 0) zo_tarvel::ExitTarvelEnvironment(id_);
    id_ = 0;
  }

 private:
  int id_ = 0;
};

}  // namespace test_support
