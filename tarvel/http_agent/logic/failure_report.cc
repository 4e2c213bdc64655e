#include "tarvel/http_agent/logic/failure_report.h"

#include <map>
#include <set>
#include <string>

#include "base/log/log.h"
#include "base/object/weakly.h"

namespace zo_tarvel {
namespace {

using HostResults = std::map<std::string, zo_net::DnsServer::HostResult>;

// A silent name server takes seconds for each host, and each report keeps its answers meanwhile.
// Reports beyond this number go out without addresses.
constexpr int kMostLookups = 16;

// Each once, since the DNS server takes only lists of distinct hosts.
std::list<std::string> HostsOf(const std::list<_StatisticItem>& items) {
  std::list<std::string> hosts;
  std::set<std::string> seen;
  for (const auto& item : items) {
    if (!item.host.empty() && seen.insert(item.host).second) hosts.push_back(item.host);
  }
  return hosts;
}

void FillInAddresses(std::list<_StatisticItem>& items, const HostResults& results) {
  for (auto& item : items) {
    const auto result = results.find(item.host);
    if (result != results.end()) item.ips = result->second.addresses;
  }
}

}  // namespace

void FailureReport::Complete(const Items& items, const StatisticReport& report,
                             const std::shared_ptr<_EnvironmentConfig>& config) {
  const std::list<std::string> hosts = HostsOf(*items);
  const bool backlog = lookups_under_way_ >= kMostLookups;
  if (hosts.empty() || backlog || !dns_server_.IsRunning()) {
    report(*items);
    return;
  }
  ZO_LOG << "[HttpAgent]DNS server GetHostByName begin";
  if (config == nullptr || config->IsExiting()) {
    ZO_LOG << "[HttpAgent]DNS server GetHostByName end env exit";
    return;
  }
  ++lookups_under_way_;
  dns_server_.GetHostByName(
      hosts,
      Weakly(this,
             [items, report](FailureReport& self, const HostResults& results) {
               FillInAddresses(*items, results);
               ZO_LOG << "[HttpAgent]DNS server GetHostByName end";
               --self.lookups_under_way_;
               self.work_thread_->PostTask([items, report] { report(*items); });
             }),
      config->address_family());
}

StatisticReport ReportTo(const std::shared_ptr<_EnvironmentConfig>& config) {
  return zo_base::Weakly(config,
                         [](_EnvironmentConfig& living, const std::list<_StatisticItem>& items) {
                           const auto reporter = living.GetExceptionReporter();
                           if (reporter) ReportStatisticItems(items, *reporter);
                         });
}

}  // namespace zo_tarvel
