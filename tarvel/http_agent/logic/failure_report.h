#pragma once

#include <atomic>
#include <list>
#include <memory>

#include "base/object/object.h"
#include "base/thread/task_loop.h"
#include "network/dns/dns_server.h"
#include "tarvel/environment/configuration/environment_config.h"
#include "tarvel/http_agent/logic/statistic_report.h"

namespace zo_tarvel {

// Completes failed sub requests with the addresses that the local DNS has for their hosts.
//
// Threads: Complete runs on the work thread; the DNS server's thread fills in the addresses.
// Ownership: the agent owns it together with the DNS server. A lookup holds it weakly.
class FailureReport : public zo_base::ZOObjectIMPL {
 public:
  // One list for the whole way to the report, because the bodies in it can be large.
  using Items = std::shared_ptr<std::list<_StatisticItem>>;

  // `dns_server` outlives every call of Complete.
  FailureReport(zo_net::DnsServer& dns_server, std::shared_ptr<zo_base::ITaskPostor> work_thread)
      : dns_server_(dns_server), work_thread_(std::move(work_thread)) {}

  // Hands the items to `report` on the work thread: at once when no lookup is needed or possible.
  // There is no report when the environment exits.
  void Complete(const Items& items, const StatisticReport& report,
                const std::shared_ptr<_EnvironmentConfig>& config);

 private:
  zo_net::DnsServer& dns_server_;
  const std::shared_ptr<zo_base::ITaskPostor> work_thread_;
  std::atomic<int> lookups_under_way_{0};
};

// Hands items to the exception reporter of the environment, as long as that is up.
StatisticReport ReportTo(const std::shared_ptr<_EnvironmentConfig>& config);

}  // namespace zo_tarvel
