#pragma once

#include <tarvel/client.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "tools/cli/command_scope.h"
#include "tools/cli/own_log.h"

namespace tarvel_cli {

// Runs an environment from construction to destruction and prints what the library reports.
//
// Threads: used on the owner's; the library's threads call the private functions. One exists at a
// time.
class Client {
 public:
  // Throws UsageError when the library refuses the settings. `scope` outlives this.
  Client(const ClientOptions& options, CommandScope& scope, bool force);
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
  // Waits for the first update. Prints a line that says why if none comes: the cached answer is
  // still valid and nobody is asked, nothing can come any more, or `limit` has passed.
  void AwaitFirstUpdate(std::chrono::duration<double> limit);
  // Has `act` called by Wait, when so much time has passed since the start.
  void At(std::chrono::duration<double> time, std::function<void(tarvel::Client&)> act);
  // Whether the update that Wait reported last brought a fresh answer.
  bool is_fresh() const { return is_fresh_; }

  // Waits a few seconds at most for the exception records of the failures so far. The library asks
  // the name server before it reports them.
  void AwaitExceptionRecords();

 private:
  using Clock = std::chrono::steady_clock;

  // Until the descriptors are readable or the time has come.
  Event WaitUntil(Clock::time_point end);
  // Calls the acts whose time has come.
  void ActWhenDue();
  void OnUpdate(const tarvel::UpdateResult& result);
  void OnAttempt(const tarvel::Attempt& attempt);
  void OnException(const tarvel::ExceptionRecord& record);

  const ClientOptions& options_;
  const bool force_;
  const Clock::time_point start_ = Clock::now();
  std::multimap<Clock::time_point, std::function<void(tarvel::Client&)>> acts_;
  const StopSignals& stop_;
  Printer& printer_;
  const int update_fd_;  // An eventfd that counts `updates_`.
  bool is_fresh_ = false;
  OwnLog own_log_;

  std::mutex mutex_;
  std::condition_variable recorded_;
  // Guarded by mutex_.
  std::deque<bool> updates_;                                 // Whether each brought an answer.
  std::set<std::pair<std::int32_t, std::string>> failures_;  // Code and URL.
  std::size_t records_ = 0;

  std::optional<tarvel::Client> client_;  // Last: calls this object until its end.
};

}  // namespace tarvel_cli
