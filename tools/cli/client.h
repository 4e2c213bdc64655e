#pragma once

#include <tarvel/tarvel.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "tools/cli/command_scope.h"

namespace tarvel_cli {

// An environment for the length of a scope, which prints what the library tells it.
//
// Threads: the owner's; the library calls back on its own. There is one at a time.
class Client {
 public:
  // Throws when there is none to be had. `scope` outlives this.
  Client(const ClientOptions& options, CommandScope& scope);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Prints an address for a connection try.
  void PrintNextLink();
  // So many of them; 0 for as many as the active answer has.
  void PrintLinks(int count);

  enum class Event { kUpdate, kStop, kTimeOut };
  // Waits until an update has ended or the user wants to stop. Each update that has ended is told
  // of by one call.
  Event Wait(std::chrono::duration<double> limit);
  // The same for the first update. Says so when the time is over.
  void AwaitFirstUpdate(std::chrono::duration<double> limit);
  // Whether the last update that Wait told of brought a fresh answer.
  bool is_fresh() const { return is_fresh_; }

  // Waits for the records of failures so far, which take a look at the name server; not for ever.
  void AwaitExceptionRecords();

 private:
  static void OnAnswer(std::int32_t code, const char* response, void* client);
  static void OnAttempt(void* client, const zo_tarvel::RequestErrorRecord* record);
  static void OnException(const zo_tarvel::TarvelExceptionData& data);

  const StopSignals& stop_;
  Printer& printer_;
  const int update_fd_;  // As many as there are codes to be taken.
  bool is_fresh_ = false;

  std::mutex mutex_;
  std::condition_variable recorded_;
  // Guarded by mutex_.
  std::deque<std::int32_t> codes_;                           // Of updates that have ended.
  std::set<std::pair<std::int32_t, std::string>> failures_;  // Code and URL.
  std::size_t records_ = 0;

  int id_ = 0;
  zo_tarvel::IZOTarvelLBSService* service_ = nullptr;  // The library's.
};

}  // namespace tarvel_cli
