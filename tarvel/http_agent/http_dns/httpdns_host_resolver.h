#pragma once

#include <tarvel/tarvel.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/file/cached_key_value_file.h"
#include "base/object/object.h"
#include "base/process/clock.h"
#include "base/thread/thread_checker.h"
#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"
#include "tarvel/http_agent/http_dns/httpdns_messages.h"
#include "tarvel/http_agent/http_dns/httpdns_server_updater.h"

namespace zo_tarvel {

// Knows the addresses of hosts: from a cache with a file, and from function D.
//
// Threads: queries, function D with the checks of its answers, and the writing of the file run on
// `task_loop`. The results of D arrive on the agent's thread, which never waits for the disk.
// Ownership: held by a shared_ptr. Tasks and requests hold it weakly.
class HttpDNSHostResolver : public EnvironmentConfigGetterBase,
                            public zo_base::ZOEnableSharedFromThis<HttpDNSHostResolver> {
 public:
  using Hosts = std::vector<std::string>;
  // Its result is ignored.
  using QueryCallback = std::function<bool(const HostCacheResult&)>;

  struct Query {
    zo_net::AddressFamily family = zo_net::kAddressFamilyAny;
    Hosts hosts;
    QueryCallback callback;
    MultipleURLHttpRequestContext context;  // Who asks, for reports.
  };

  HttpDNSHostResolver(zo_base::WallClock wall_clock, std::shared_ptr<zo_base::ITaskLoop> task_loop,
                      std::shared_ptr<HttpDNSServerUpdater> servers);

  void LoadCache(const std::string& path);
  // Writes the hosts of recent answers to the file, if that is still to be done. On the loop's
  // thread.
  void SaveRecentHosts();

  // Calls back once, on the loop's thread: at once when the cache knows all hosts, else after a
  // request for the others. With `cache_only` it sends no request and leaves stale hosts out.
  void DoQuery(const Query& query, bool cache_only);

  const HttpDNSHostCache& cache() const { return host_cache; }  // Any thread.

 private:
  using UpdateCallback = std::function<void(bool success)>;

  // What the cache says of a query's hosts.
  struct CacheReport {
    HostCacheResult result;  // Good and stale hosts.
    Hosts async_hosts;       // Stale hosts, to be refreshed in the background.
    Hosts sync_hosts;        // Hosts that must be asked for first.
  };

  CacheReport CheckCache(const Query& query, bool cache_only) const;
  void QueryAfterUpdate(Query query, const CacheReport& report);
  void UpdateCache(zo_net::AddressFamily family, const Hosts& hosts, const UpdateCallback& done,
                   const MultipleURLHttpRequestContext& context);
  void OnHosts(bool success, const std::string& body,
               const std::optional<HttpDNSHostUpdates>& updates);
  void SaveSoon();
  void SaveCache();

  const zo_base::WallClock wall_clock;
  const std::shared_ptr<zo_base::ITaskLoop> task_loop;
  const std::shared_ptr<HttpDNSServerUpdater> servers;
  const zo_base::ThreadChecker loop_thread, agent_thread;
  zo_base::CachedKeyValueFile host_cache_file;
  HttpDNSHostCache host_cache;
  std::atomic<bool> must_save{false};  // Memory has hosts that the file may lack.
};

}  // namespace zo_tarvel
