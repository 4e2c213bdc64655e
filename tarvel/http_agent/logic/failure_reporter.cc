#include "tarvel/http_agent/logic/failure_reporter.h"

#include <map>
#include <set>
#include <string>

#include "base/json/json11.h"
#include "base/log/log.h"
#include "base/object/weakly.h"
#include "tarvel/environment/configuration/exception_data.h"
#include "tarvel/environment/configuration/exception_reporter_interface.h"

namespace zo_tarvel {
namespace {

using HostResults = std::map<std::string, zo_net::DnsServer::HostResult>;
using zo_base::Weakly;
using zo_base::json11::Json;
using zo_base::json11::ToJson;

// A silent name server takes seconds for each host, and each report keeps its answers meanwhile.
// Reports beyond this number go out without addresses.
constexpr int kMostLookups = 16;

constexpr std::int32_t kFailedSubRequest = 1;  // The kind of these records.
constexpr std::int32_t kReported = 1;          // Their state.

// Returns each host once, since the DNS server takes only lists of distinct hosts.
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

Json ToJson(const std::map<std::string, std::string>& headers) {
  return Json::object(headers.begin(), headers.end());
}

// What is known of a failed sub request, as one JSON object.
std::string DescriptionOf(const _StatisticItem& item) {
  Json::object description;
  if (!item.host.empty() && !item.ips.empty()) description[item.host] = ToJson(item.ips);
  if (item.corrected) {
    description["corr_info"] =
        Json::object{{"corr_url", item.corr_url},
                     {"corr_start_time", static_cast<long long>(item.corr_start_time)},
                     {"corr_duration", static_cast<long long>(item.corr_duration)}};
  }
  if (!item.error_message.empty()) description["error_message"] = item.error_message;
  if (!item.request_header.empty()) description["request_header"] = ToJson(item.request_header);
  if (!item.response_body.empty()) description["response_body"] = item.response_body;
  if (!item.response_header.empty()) description["response_header"] = ToJson(item.response_header);
  return Json(std::move(description)).dump();
}

std::shared_ptr<ExceptionDataDetails> RecordOf(const _StatisticItem& item) {
  auto record = CreateExceptionDataDetails(kFailedSubRequest);
  if (record == nullptr) return record;
  record->process_id = item.trace_id;
  record->duration = item.duration;
  record->start_time = item.end_time;
  record->state = kReported;
  record->exception_service = item.exception_category;
  const int operation_type = item.request_type == 0 ? 0 : 1;
  record->extension = {{operation_type, item.url, item.code, DescriptionOf(item), ""}};
  return record;
}

void Send(const std::list<_StatisticItem>& items, IExceptionDataReporter& reporter) {
  for (const _StatisticItem& item : items) {
    const auto record = RecordOf(item);
    if (record == nullptr) return;
    reporter.ReportException(record);
    ZO_LOG << "[statics][testing]ret:true";
  }
}

}  // namespace

void FailureReporter::Report(const Items& items) {
  const auto config = GetEnvironmentConfig();
  if (items->empty() || config == nullptr || !config->enable_exception_data_reporting()) return;
  Complete(items, Weakly(config, [](auto& living, const std::list<_StatisticItem>& completed) {
             if (const auto reporter = living.GetExceptionReporter()) Send(completed, *reporter);
           }));
}

void FailureReporter::Complete(const Items& items, const StatisticReport& report) {
  work_thread_->PostTask(Weakly(this, [items, report](auto& self) {
    if (!items->empty() && report) self.LookUpHosts(items, report);
  }));
}

void FailureReporter::LookUpHosts(const Items& items, const StatisticReport& report) {
  ZO_ASSERT(work_thread_->IsCurrentThread());
  const std::list<std::string> hosts = HostsOf(*items);
  const bool backlog = lookups_under_way_ >= kMostLookups;
  if (hosts.empty() || backlog || !dns_server_.IsRunning()) {
    report(*items);
    return;
  }
  ZO_LOG << "[HttpAgent]DNS server GetHostByName begin";
  const auto config = GetEnvironmentConfig();
  if (config == nullptr || config->IsExiting()) {
    ZO_LOG << "[HttpAgent]DNS server GetHostByName end env exit";
    return;
  }
  ++lookups_under_way_;
  const auto on_results = Weakly(this, [items, report](auto& self, const HostResults& results) {
    FillInAddresses(*items, results);
    ZO_LOG << "[HttpAgent]DNS server GetHostByName end";
    --self.lookups_under_way_;
    self.work_thread_->PostTask([items, report] { report(*items); });
  });
  dns_server_.GetHostByName(hosts, on_results, config->address_family());
}

}  // namespace zo_tarvel
