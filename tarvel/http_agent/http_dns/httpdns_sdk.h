#pragma once

#include <tarvel/tarvel.h>

#include <memory>
#include <string>
#include <vector>

#include "base/thread/task_thread.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/http_agent/http_dns/httpdns_host_resolver.h"
#include "tarvel/http_agent/http_dns/httpdns_server_updater.h"

namespace zo_tarvel {

// The HTTPDNS client: resolves host names over HTTP, so that resolution survives a broken or
// poisoned local DNS.
//
// Threads: it is the thread "http dns manager", on which its two parts run their tasks. At its end
// it saves what the host file lacks. InvokeQuery, GetServerList and GetHostCache: any thread.
//
// Ownership: held by a shared_ptr. The HTTPDNS service owns it and stops its thread. It owns the
// two parts, which never refer to it.
class HttpDNSManager : public EnvironmentConfigGetterBase, public virtual zo_base::TaskThread {
 public:
  using QueryCallback = HttpDNSHostResolver::QueryCallback;

  // `wall_clock` times the entries of the files and of the cache, `clock` the tasks of the thread.
  explicit HttpDNSManager(zo_base::WallClock wall_clock = zo_base::WallClockMilliseconds,
                          zo_base::SteadyClock& clock = zo_base::SteadyClock::OfSystem());

  // Starts the thread and loads both files. Returns false when the system gives no thread.
  bool Init();

  // Calls back once, on this thread, with the addresses of `hosts`; the result leaves out
  // hosts without a known address. If the thread stops first, the callback is never called.
  // `context` says who asks, for reports. Always returns true.
  bool InvokeQuery(zo_net::AddressFamily family, const std::vector<std::string>& hosts,
                   const QueryCallback& callback, const MultipleURLHttpRequestContext& context);

  // See HttpDNSServerUpdater.
  void DoReload(zo_net::AddressFamily family) { server_updater->DoReload(family); }
  std::vector<HttpDNSServerInfo> GetServerList(zo_net::AddressFamily family) {
    return server_updater->GetServerList(family);
  }

  void OnThreadEnd() override;

  const HttpDNSHostCache& GetHostCache() const { return host_resolver->cache(); }

 private:
  const std::shared_ptr<HttpDNSServerUpdater> server_updater;
  const std::shared_ptr<HttpDNSHostResolver> host_resolver;
  std::vector<std::string> request_headers;  // Who the client is. Nothing reads them.
};

}  // namespace zo_tarvel
