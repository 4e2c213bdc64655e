#pragma once

#include <tarvel/tarvel.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/file/cached_key_value_file.h"
#include "base/object/object.h"
#include "base/process/clock.h"
#include "base/thread/thread_checker.h"
#include "base/thread/timer.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/http_agent/http_dns/httpdns_messages.h"
#include "tarvel/http_agent/http_dns/httpdns_server_list.h"

namespace zo_tarvel {

// Knows which HTTPDNS servers there are: from defaults, from a file, and from function S, which it
// calls whenever the time to live of the list has ended.
//
// Threads: the timer, DoReload and the writing of the file run on `task_loop`; the first load runs,
// and may write, on the thread that calls it. Function S and the checks of its answers run on the
// agent's thread. GetServerList may be called on any thread.
// Ownership: held by a shared_ptr. Timers, tasks and requests hold it weakly.
class HttpDNSServerUpdater : public EnvironmentConfigGetterBase,
                             public zo_base::ZOEnableSharedFromThis<HttpDNSServerUpdater> {
 public:
  HttpDNSServerUpdater(zo_base::WallClock wall_clock,
                       std::shared_ptr<zo_base::ITaskLoop> task_loop);

  // Writes the defaults into a file that has no usable list.
  void LoadServerCache(const std::string& path);
  // Takes the servers over from the file and schedules the first reload.
  void InitInterfaceAddress();

  // Asks for a new list of servers, unless such a request is under way. On the loop's thread.
  void DoReload(zo_net::AddressFamily family);

  // The servers in the order in which they are to be asked. Any thread.
  std::vector<HttpDNSServerInfo> GetServerList(zo_net::AddressFamily family);

 private:
  void ScheduleFirstReload();
  void ReloadAfter(std::chrono::milliseconds delay, const char* log_text);
  void OnReloadEnd(bool success, const std::string& body,
                   const std::optional<HttpDNSServiceAnswer>& answer);
  void OnServers(const HttpDNSServiceAnswer& answer);
  void RetryReload();

  const zo_base::WallClock wall_clock;
  const std::shared_ptr<zo_base::ITaskLoop> task_loop;
  const zo_base::ThreadChecker loop_thread;
  zo_base::CachedKeyValueFile server_cache_file;
  HttpDNSServerList server_list;
  zo_base::Timer timer;                           // For the next S.
  std::atomic<std::int32_t> retry_count{0};       // Minutes until the next S; 0 after a success.
  std::atomic<bool> updatting_interface_{false};  // An S is in flight.
};

}  // namespace zo_tarvel
