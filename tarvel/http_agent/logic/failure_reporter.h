#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <utility>

#include "base/thread/task_thread.h"
#include "network/dns/dns_server.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/http_agent/logic/statistic_item.h"

namespace zo_tarvel {

using StatisticReport = std::function<void(const std::list<_StatisticItem>&)>;

// Reports the failed sub requests of a logical request to the exception reporter, completed with
// the addresses that the local DNS has for their hosts.
//
// Threads: Report and Complete may be called on any thread and only post to the work thread. The
// DNS server's thread fills in the addresses.
// Ownership: the agent owns it. Tasks and lookups hold it weakly.
class FailureReporter : public EnvironmentConfigGetterBase, public zo_base::ZOObjectIMPL {
 public:
  // One list for the whole way to the report, because the bodies in it can be large.
  using Items = std::shared_ptr<std::list<_StatisticItem>>;

  // `dns_server` outlives all tasks of the work thread that use this.
  FailureReporter(zo_net::DnsServer& dns_server, std::shared_ptr<zo_base::TaskThread> work_thread)
      : dns_server_(dns_server), work_thread_(std::move(work_thread)) {}

  // Makes one exception record of each item, if the settings want any.
  void Report(const Items& items);
  // Hands the completed items to `report` on the work thread, or drops them when the environment
  // exits.
  void Complete(const Items& items, const StatisticReport& report);

 private:
  void LookUpHosts(const Items& items, const StatisticReport& report);

  zo_net::DnsServer& dns_server_;
  const std::shared_ptr<zo_base::TaskThread> work_thread_;
  std::atomic<int> lookups_under_way_{0};
};

}  // namespace zo_tarvel
