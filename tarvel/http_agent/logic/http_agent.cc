#include "tarvel/http_agent/logic/http_agent.h"

#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "base/log/log.h"
#include "base/text/text_of.h"
#include "base/thread/thread_info.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"
#include "tarvel/environment/configuration/exception_reporter_interface.h"
#include "tarvel/http_agent/logic/internet_reachability.h"
#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"
#include "tarvel/http_agent/logic/statistic_report.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::GetHost;
using zo_base::TextOf;

void LogFailed(const MultipleURLHttpRequest& request) {
  ZO_LOG << "[multiple]Request return false, use http dns if fail:"
         << TextOf(request.use_http_dns_if_fail);
}

void LogCancelled(const MultipleURLHttpRequest& request) {
  if (zo_base::GetLogWriterFor(zo_base::kLogApp) == nullptr) return;
  std::string list;
  for (const auto& entry : request.urls) list.append(" --").append(entry.url).append("\r\n");
  ZO_LOG << "[multiple]Request cancel,internet connected is false url list:\r\n" << list;
}

// A silent name server takes seconds for each host, and each report keeps its answers meanwhile.
// More of them at a time go out without addresses.
constexpr int kMostLookups = 16;

// Without its thread it does nothing; the environment comes up all the same.
void StartOrLog(zo_net::DnsServer& server) {
  try {
    server.Start();
  } catch (const std::system_error& error) {
    ZO_LOG << "dns server thread failed:" << error.what();
  }
}

// The URL with an address in the place of its host.
std::string OnAddress(const std::string& url, const std::string& address) {
  const std::string_view host = WQBASE::network::HostIn(url);
  if (host.empty()) return url;
  const auto at = static_cast<std::size_t>(host.data() - url.data());
  return std::string(url).replace(at, host.size(), address);
}

}  // namespace

HttpAgent::~HttpAgent() { Uninit(); }

bool HttpAgent::Init() {
  std::call_once(init_flag_, [this] { InitOnce(); });
  return true;
}

void HttpAgent::InitOnce() {
  dns_server_ = std::make_shared<zo_net::DnsServer>();
  work_thread_ = std::make_shared<zo_base::TaskThread>("http_agent_work");
  if (const auto config = GetEnvironmentConfig()) {
    const std::weak_ptr<HttpAgent> weak = shared_from_this<HttpAgent>();
    config->SetHttpRequestInvoker(
        [weak](const MultipleURLHttpRequest& request, bool post_to_work_thread) {
          if (const auto agent = weak.lock()) agent->OnHttpRequest(request, post_to_work_thread);
        });
  }
  StartOrLog(*dns_server_);
  http_dns_service_ = std::make_shared<HttpDNSService>();
  http_dns_service_->SetEnvironmentConfig(GetEnvironmentConfig());
  http_dns_service_->Init();
  SetTaskPosterOfReporter(work_thread_->GetTaskLoop());
  EnsureWorkThread();
}

bool HttpAgent::EnsureWorkThread() {
  const std::string failure = work_thread_->StartIfPossible();
  if (!failure.empty()) ZO_LOG << "http agent thread failed:" << failure;
  return failure.empty();
}

void HttpAgent::Uninit() {
  const bool is_first = !stopped_->exchange(true);
  SetTaskPosterOfReporter(nullptr);
  if (work_thread_) work_thread_->Stop();
  // The service takes one Uninit only, and would log each one while HTTPDNS is off.
  if (is_first && http_dns_service_) http_dns_service_->Uninit();
  if (dns_server_) dns_server_->Stop();
}

void HttpAgent::SetTaskPosterOfReporter(std::shared_ptr<zo_base::ITaskPostor> poster) {
  const auto config = GetEnvironmentConfig();
  const auto reporter = config == nullptr ? nullptr : config->GetExceptionReporter();
  if (reporter) reporter->SetTaskPoster(std::move(poster));
}

bool HttpAgent::IsInternetConnected() {
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) return false;
  return config->try_http_request_on_netunav() || IsInternetReachable();
}

void HttpAgent::OnHttpRequest(const MultipleURLHttpRequest& request, bool post_to_work_thread) {
  if (GetEnvironmentConfig() == nullptr) return;
  if (!EnsureWorkThread()) {
    if (request.result_callback) request.result_callback(false, false, "", "");
    return;
  }
  if (!IsInternetConnected()) {
    LogCancelled(request);
    if (!request.result_callback) return;
    if (post_to_work_thread) {
      PostToWorkThread([request](HttpAgent&) { request.result_callback(true, false, "", ""); });
      return;
    }
  }
  // A helper needs a thread that its timers and answers can come back to.
  if (post_to_work_thread || zo_base::GetCurrentTaskLoop() == nullptr) {
    PostToWorkThread([request](HttpAgent& agent) { agent.InvokeMultipleURLHttpRequest(request); });
  } else {
    InvokeMultipleURLHttpRequest(request);
  }
}

template <class F>
void HttpAgent::PostToWorkThread(F task) {
  const std::weak_ptr<HttpAgent> weak = shared_from_this<HttpAgent>();
  work_thread_->PostTask([weak, task = std::move(task)] {
    if (const auto agent = weak.lock()) task(*agent);
  });
}

// A separate function, so that leak checkers can suppress exactly the helpers that an exit leaves
// allocated.
MultipleURLHttpRequestHelper* HttpAgent::MakeUnownedHelper() {
  return new MultipleURLHttpRequestHelper;
}

void HttpAgent::InvokeMultipleURLHttpRequest(const MultipleURLHttpRequest& request) {
  const std::weak_ptr<HttpAgent> weak = shared_from_this<HttpAgent>();
  auto* const helper = MakeUnownedHelper();
  helper->SetEnvironmentConfig(GetEnvironmentConfig());
  helper->SetStopFlag(stopped_);
  // A process can be so short of thread-local keys that the thread doesn't know its loop.
  const auto own_loop = zo_base::GetCurrentTaskLoop();
  helper->SetTaskLoop(own_loop == nullptr ? work_thread_->GetTaskLoop() : own_loop);
  helper->SetRequest(request);
  helper->Connect<const bool, const bool, const std::string, const std::string,
                  const MultipleURLHttpRequest>(
      SIG_ALL_SUB_REQUEST_RETURN,
      [weak, helper](bool stop, bool success, const std::string& headers, const std::string& body,
                     const MultipleURLHttpRequest& adjusted) {
        const auto agent = weak.lock();
        if (agent == nullptr) return;
        const std::shared_ptr<MultipleURLHttpRequestHelper> owned(helper);
        const auto outcome =
            std::make_shared<const Outcome>(Outcome{stop, success, headers, body, adjusted});
        const auto items = std::make_shared<std::list<_StatisticItem>>(owned->TakeStatisticItems());
        agent->PostToWorkThread(
            [outcome, items](HttpAgent& on_thread) { on_thread.FinishRequest(outcome, items); });
      });
  helper->InvokeRequest();
  // Without a URL there will be no signal.
  if (request.urls.empty()) delete helper;
}

// Where a logical request really ends.
void HttpAgent::FinishRequest(const std::shared_ptr<const Outcome>& outcome,
                              const SharedItems& items) {
  const MultipleURLHttpRequest& request = outcome->request;
  if (GetEnvironmentConfig() == nullptr) return;
  ReportFailures(items);
  if (!outcome->success) {
    LogFailed(request);
    if (request.use_http_dns_if_fail) {
      TryOnAddresses(outcome);
      return;
    }
    LogFailed(request);
  }
  Deliver(*outcome, outcome->stop);
}

void HttpAgent::Deliver(const Outcome& outcome, bool stop) {
  if (GetEnvironmentConfig() == nullptr) return;
  const auto& callback = outcome.request.result_callback;
  if (callback) callback(stop, outcome.success, outcome.headers, outcome.body);
}

// --- Second try ---

HttpAgent::NamedUrls HttpAgent::NamedUrlsOf(const MultipleURLHttpRequest& request) {
  NamedUrls named;
  std::set<std::string> seen;  // A list can be as long as a server likes.
  for (const auto& entry : request.urls) {
    const std::string host = GetHost(entry.url, false);
    if (WQBASE::network::IsIPAddress(host) || !seen.insert(entry.url).second) continue;
    auto& urls = named.urls[host];
    if (urls.empty()) named.hosts.push_back(host);
    urls.push_back(entry.url);
  }
  return named;
}

void HttpAgent::TryOnAddresses(const std::shared_ptr<const Outcome>& outcome) {
  NamedUrls named = NamedUrlsOf(outcome->request);
  if (named.hosts.empty()) {
    ZO_LOG << "[multiple]Use http dns,host list empty";
    Deliver(*outcome, outcome->stop);
    return;
  }
  ZO_LOG << "[multiple]Use http dns,host_list size:" << named.hosts.size();
  ZO_LOG << "[multiple]Use http dns,host:";
  for (const std::string& host : named.hosts) ZO_LOG << "[multiple] -- " << host;
  const std::weak_ptr<HttpAgent> weak = shared_from_this<HttpAgent>();
  const auto hosts = named.hosts;
  const auto on_addresses = [weak, outcome,
                             named = std::move(named)](const HostCacheResult& addresses) {
    const auto agent = weak.lock();
    if (agent == nullptr) return false;
    agent->PostToWorkThread([outcome, named, addresses](HttpAgent& on_thread) {
      on_thread.OnAddresses(*outcome, named, addresses);
    });
    return agent->GetEnvironmentConfig() != nullptr;
  };
  const auto& request = outcome->request;
  const bool asked =
      http_dns_service_->InvokeQuery(request.address_family, hosts, on_addresses, request.context);
  if (!asked) Deliver(*outcome, outcome->stop);
}

void HttpAgent::OnAddresses(const Outcome& outcome, const NamedUrls& named,
                            const HostCacheResult& addresses) {
  MultipleURLHttpRequest request = outcome.request;
  request.urls.clear();
  request.use_http_dns_if_fail = false;  // There is no third try.
  for (const auto& [host, ips] : addresses) {
    ZO_LOG << "[multiple]User http dns, host:" << host << "ip list:";
    const auto urls = named.urls.find(host);
    for (const std::string& ip : ips) {
      ZO_LOG << "[multiple]User http dns, ------" << ip;
      if (urls == named.urls.end()) continue;
      for (const auto& url : urls->second) request.urls.push_back({host, OnAddress(url, ip)});
    }
  }
  if (request.urls.empty()) {
    ZO_LOG << "[multiple]Use http dns,url empty";
    Deliver(outcome, true);
    return;
  }
  InvokeMultipleURLHttpRequest(request);
}

// --- Reports ---

void HttpAgent::ReportFailures(const SharedItems& items) {
  const auto config = GetEnvironmentConfig();
  if (items->empty() || config == nullptr || !config->enable_exception_data_reporting()) return;
  const std::weak_ptr<_EnvironmentConfig> weak = config;
  FromatStatisticItemList(items, [weak](const std::list<_StatisticItem>& completed) {
    const auto living = weak.lock();
    const auto reporter = living == nullptr ? nullptr : living->GetExceptionReporter();
    if (reporter) ReportStatisticItems(completed, *reporter);
  });
}

void HttpAgent::FromatStatisticItemList(const std::list<_StatisticItem>& items,
                                        const StatisticReport& report) {
  FromatStatisticItemList(std::make_shared<std::list<_StatisticItem>>(items), report);
}

void HttpAgent::FromatStatisticItemList(const SharedItems& items, const StatisticReport& report) {
  PostToWorkThread([items, report](HttpAgent& on_thread) {
    if (!items->empty() && report) on_thread.ResolveHostsOf(items, report);
  });
}

void HttpAgent::ResolveHostsOf(const SharedItems& items, const StatisticReport& report) {
  // Each once: the DNS server answers for a list of distinct hosts only.
  std::list<std::string> hosts;
  std::set<std::string> seen;
  for (const auto& item : *items) {
    if (!item.host.empty() && seen.insert(item.host).second) hosts.push_back(item.host);
  }
  const bool backlog = lookups_under_way_ >= kMostLookups;
  if (hosts.empty() || backlog || !dns_server_->IsRunning()) {
    report(*items);
    return;
  }
  ZO_LOG << "[HttpAgent]DNS server GetHostByName begin";
  const auto config = GetEnvironmentConfig();
  if (config == nullptr || config->IsExiting()) {
    ZO_LOG << "[HttpAgent]DNS server GetHostByName end env exit";
    return;
  }
  const std::weak_ptr<HttpAgent> weak = shared_from_this<HttpAgent>();
  const auto on_hosts =
      [weak, items, report](const std::map<std::string, zo_net::DnsServer::HostResult>& results) {
        for (auto& item : *items) {
          const auto result = results.find(item.host);
          if (result != results.end()) item.ips = result->second.addresses;
        }
        ZO_LOG << "[HttpAgent]DNS server GetHostByName end";
        if (const auto agent = weak.lock()) {
          --agent->lookups_under_way_;
          agent->PostToWorkThread([report, items](HttpAgent&) { report(*items); });
        }
      };
  ++lookups_under_way_;
  dns_server_->GetHostByName(hosts, on_hosts, config->address_family());
}

}  // namespace zo_tarvel
