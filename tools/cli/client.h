#pragma once

#include <tarvel/client.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "tools/cli/command_scope.h"

namespace tarvel_cli {

// Runs an environment from construction to destruction and prints what the library reports.
//
// Threads: used on the owner's; the library's threads call the private functions. One exists at a
// time.
class Client {
 public:
  // Throws UsageError when the library refuses the settings. `scope` outlives this.
  Client(const ClientOptions& options, CommandScope& scope);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Takes the next link address and prints it.
  void PrintNextLink();
  // Prints `count` link addresses; 0 means as many as the active answer has.
  void PrintLinks(int count);

  enum class Event { kUpdate, kStop, kTimeOut };
  // Waits until an update has ended or the user wants to stop. Each call reports one update.
  Event Wait(std::chrono::duration<double> limit);
  // Waits for the first update, and prints a line if none ends within `limit`.
  void AwaitFirstUpdate(std::chrono::duration<double> limit);
  // Whether the update that Wait reported last brought a fresh answer.
  bool is_fresh() const { return is_fresh_; }

  // Waits a few seconds at most for the exception records of the failures so far. The library asks
  // the name server before it reports them.
  void AwaitExceptionRecords();

 private:
  void OnUpdate(const tarvel::UpdateResult& result);
  void OnAttempt(const tarvel::Attempt& attempt);
  void OnException(const tarvel::ExceptionRecord& record);

  const StopSignals& stop_;
  Printer& printer_;
  const int update_fd_;  // An eventfd that counts `updates_`.
  bool is_fresh_ = false;

  std::mutex mutex_;
  std::condition_variable recorded_;
  // Guarded by mutex_.
  std::deque<bool> updates_;                                 // Whether each brought an answer.
  std::set<std::pair<std::int32_t, std::string>> failures_;  // Code and URL.
  std::size_t records_ = 0;

  std::optional<tarvel::Client> client_;  // Last: calls this object until its end.
};

}  // namespace tarvel_cli
