#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "base/object/object.h"
#include "base/thread/task_thread.h"
#include "network/dns/dns_server.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/http_agent/logic/failure_reporter.h"
#include "tarvel/http_agent/logic/httpdns_service.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

class MultipleURLHttpRequestHelper;

// The one front through which the library sends logical requests. It publishes itself in the
// configuration, as the function behind InvokeHttpRequest. A request that has failed on all URLs is
// tried once more on the addresses that HTTPDNS knows, and failures are reported.
//
// Threads: requests come from any thread; all else runs on its work thread, "http_agent_work": the
// helpers with their timers and checks, the end of every request, and reports.
// Ownership: the environment's storage owns it; it owns its work thread, the DNS server and the
// HTTPDNS service. Requests that are under way when it stops get no callback.
class HttpAgent : public EnvironmentConfigGetterBase, public zo_base::ZOObjectIMPL {
 public:
  ~HttpAgent() override;

  // Builds and starts its parts, once. Always true.
  bool Init();
  // Stops them: no further URL is started from then on. May be called again.
  void Uninit();

  // Whether a request has a chance, as far as the system itself can tell.
  bool IsInternetConnected();

  // Starts `request` on the calling thread, which should be the work thread.
  void InvokeMultipleURLHttpRequest(MultipleURLHttpRequest request);

  // Completes the items with the addresses that the local DNS has for their hosts, and hands them
  // to `report` on the work thread. Any thread; returns at once.
  void FromatStatisticItemList(const std::list<_StatisticItem>& items,
                               const StatisticReport& report);

 private:
  // How a walk along the URLs has ended.
  struct Outcome {
    bool stop = false;
    bool success = false;
    std::string headers;
    std::string body;
    MultipleURLHttpRequest request;
  };

  void InitOnce();
  // Starts the work thread unless it runs. Without it, requests fail on the caller's thread.
  bool EnsureWorkThread();
  void SetTaskPosterOfReporter(std::shared_ptr<zo_base::ITaskPostor> poster);

  void OnHttpRequest(const MultipleURLHttpRequest& request, bool post_to_work_thread);
  static MultipleURLHttpRequestHelper* MakeUnownedHelper();
  void FinishRequest(const std::shared_ptr<const Outcome>& outcome,
                     const FailureReporter::Items& items);
  void TryOnAddresses(const std::shared_ptr<const Outcome>& outcome);
  void OnAddressesKnown(const Outcome& outcome, const HostCacheResult& addresses);
  // Calls back with the result of a request that goes no further.
  void Deliver(const Outcome& outcome, bool stop);

  // Shared with the helpers, some of which outlive this.
  const std::shared_ptr<std::atomic<bool>> stopped_ = std::make_shared<std::atomic<bool>>(false);
  std::once_flag init_flag_;
  // Constant after Init.
  std::shared_ptr<zo_base::TaskThread> work_thread_;
  std::shared_ptr<zo_net::DnsServer> dns_server_;
  std::shared_ptr<HttpDNSService> http_dns_service_;
  std::shared_ptr<FailureReporter> failure_reporter_;
};

}  // namespace zo_tarvel
