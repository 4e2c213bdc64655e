#pragma once

#include <tarvel/tarvel.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/file/cached_key_value_file.h"
#include "base/object/weakly.h"
#include "base/process/wall_clock.h"
#include "base/thread/task_thread.h"
#include "base/thread/timer.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"
#include "tarvel/http_agent/http_dns/httpdns_server_list.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

// The HTTPDNS client: resolves host names over HTTP, so that resolution survives a broken or
// poisoned local DNS. It knows its servers from defaults, a file and function S, and hosts from a
// cache, a file and function D.
//
// Threads: "http dns manager" runs the reload timer, writes the server file, and carries the
// requests and checks of function D. InvokeQuery may be called on any thread. Function S runs on
// the agent's thread. Ownership: held by a shared_ptr; the HTTPDNS service owns it and stops its
// thread. Requests hold it weakly.
class HttpDNSManager : public EnvironmentConfigGetterBase, public virtual zo_base::TaskThread {
 public:
  // Its answer isn't looked at.
  using QueryCallback = std::function<bool(const HostCacheResult&)>;
  using UpdateCallback = std::function<void(bool success)>;

  // `wall_clock` times what is in the files and in the cache.
  explicit HttpDNSManager(zo_base::WallClock wall_clock = zo_base::WallClockMilliseconds);

  // Starts the thread and loads both files. False when the system gives no thread.
  bool Init();

  // Addresses of `hosts`: from the cache what is good or stale, from a server what isn't there. One
  // call back, on this thread, in which hosts can be missing; none when the thread stops before.
  // `context` says who asks, for reports. True.
  bool InvokeQuery(zo_net::AddressFamily family, const std::vector<std::string>& hosts,
                   const QueryCallback& callback, const MultipleURLHttpRequestContext& context);

  // What it knows of hosts. Any thread.
  const HttpDNSHostCache& GetHostCache() const { return host_cache; }

  // Asks for a new list of servers, unless that is under way. On the thread.
  void DoReload(zo_net::AddressFamily family);

  // The servers in the order of trying. Any thread.
  std::vector<HttpDNSServerInfo> GetServerList(zo_net::AddressFamily family) {
    return server_list.GetServers(family, OnlyHttps());
  }

 private:
  using Hosts = std::vector<std::string>;

  // What one query asks.
  struct Query {
    zo_net::AddressFamily family = zo_net::kAddressFamilyAny;
    Hosts hosts;
    QueryCallback callback;
    MultipleURLHttpRequestContext context;
  };

  // What the cache says of a query's hosts.
  struct CacheReport {
    HostCacheResult result;  // Good and stale ones.
    Hosts async_hosts;       // Stale ones, to be refreshed beside.
    Hosts sync_hosts;        // To be asked for first.
  };

  template <class F>
  auto Weakly(F f) {
    return zo_base::Weakly(shared_from_this<HttpDNSManager>(), std::move(f));
  }

  void MakeRequestHeaders();

  // --- Servers ---
  void LoadServerCache();
  void WriteDefaultServers();
  void InitInterfaceAddress();
  void ScheduleFirstReload();
  void ReloadAfter(std::int32_t delay_ms, const char* log_text);
  MultipleURLHttpRequest MakeSRequest(zo_net::AddressFamily family, _EnvironmentConfig& config);
  void OnReloadEnd(bool success, const std::string& body);
  void OnServers(const std::string& body);
  void RetryReload();

  // --- Hosts ---
  void LoadCache();
  void SaveCache();
  void DoQuery(const Query& query, bool cache_only);
  CacheReport CheckCache(const Query& query, bool cache_only) const;
  void UpdateCache(zo_net::AddressFamily family, const Hosts& hosts, const UpdateCallback& done,
                   const MultipleURLHttpRequestContext& context);
  void SendDRequest(zo_net::AddressFamily family, const Hosts& hosts, const UpdateCallback& done,
                    const MultipleURLHttpRequestContext& context);
  void OnHosts(bool success, const std::string& body, const Hosts& asked,
               const UpdateCallback& done);

  // Empty when the configuration has gone.
  std::string Directory();
  bool OnlyHttps();

  const zo_base::WallClock wall_clock;
  zo_base::CachedKeyValueFile server_cache_file;
  zo_base::CachedKeyValueFile host_cache_file;
  std::vector<std::string> request_headers;  // Who the client is. Kept, and read by nobody.
  HttpDNSServerList server_list;
  HttpDNSHostCache host_cache;
  zo_base::Timer timer;                           // For the next S.
  std::atomic<std::int32_t> retry_count{0};       // Minutes until the next S; 0 after a success.
  std::atomic<bool> updatting_interface_{false};  // An S is in flight.
};

}  // namespace zo_tarvel
