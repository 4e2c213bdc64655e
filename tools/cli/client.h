#pragma once

#include <tarvel/tarvel.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "tools/cli/client_options.h"
#include "tools/cli/printer.h"

namespace tarvel_cli {

// Has Ctrl-C and SIGTERM wait for Client::Wait instead of ending the process. Before any thread
// starts.
void BlockStopSignals();

// The data directory of a run: the one that was asked for, or one that goes at the end of the
// scope.
class DataDirectory {
 public:
  explicit DataDirectory(ClientOptions& options);  // Names itself there.
  ~DataDirectory();
  DataDirectory(const DataDirectory&) = delete;
  DataDirectory& operator=(const DataDirectory&) = delete;

 private:
  std::string own_;  // Empty when it isn't ours to remove.
};

// Puts the servers of `httpdns_cache` where the library looks for them, and sets up whom it trusts.
// Before the environment starts.
void PrepareHttpDNS(const ClientOptions& options);

// An environment for the length of a scope, which prints what the library tells it.
//
// Threads: the owner's; the library calls back on its own. There is one at a time.
class Client {
 public:
  Client(const ClientOptions& options, Printer& printer);  // Throws when there is none to be had.
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Prints an address for a connection try.
  void PrintNextLink();
  std::int32_t CountLinks() { return service_->GetLinkCount(); }

  enum class Event { kUpdate, kStop, kTimeOut };
  // Waits until an update has ended or the user wants to stop. Updates that end meanwhile are kept
  // for the next call.
  Event Wait(std::chrono::duration<double> limit);
  // Whether the last update that Wait told of brought a fresh answer.
  bool is_fresh() const { return is_fresh_; }

  // Waits for the records of failures so far, which take a look at the name server; not for ever.
  void AwaitExceptionRecords();

 private:
  static void OnAnswer(std::int32_t code, const char* response, void* client);
  static void OnAttempt(void* client, const zo_tarvel::RequestErrorRecord* record);
  static void OnException(const zo_tarvel::TarvelExceptionData& data);

  Printer& printer_;
  int stop_fd_ = -1;    // Readable when the user wants to stop.
  int update_fd_ = -1;  // Counts updates.
  std::atomic<std::int32_t> last_code_{0};
  bool is_fresh_ = false;

  std::mutex mutex_;
  std::condition_variable recorded_;
  std::set<std::pair<std::int32_t, std::string>> failures_;  // Code and URL. Guarded by mutex_.
  std::size_t records_ = 0;                                  // Guarded by mutex_.

  int id_ = 0;
  zo_tarvel::IZOTarvelLBSService* service_ = nullptr;  // The library's.
};

}  // namespace tarvel_cli
