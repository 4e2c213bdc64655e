#include "tarvel/http_agent/logic/http_agent.h"

#include <system_error>
#include <utility>
#include <vector>

#include "base/log/log.h"
#include "base/object/weakly.h"
#include "base/text/strings.h"
#include "base/thread/thread_info.h"
#include "tarvel/environment/configuration/exception_reporter_interface.h"
#include "tarvel/http_agent/logic/internet_reachability.h"
#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"
#include "tarvel/http_agent/logic/second_try.h"

namespace zo_tarvel {
namespace {

void LogFailed(const MultipleURLHttpRequest& request) {
  ZO_LOG << "[multiple]Request return false, use http dns if fail:"
         << zo_base::TrueOrFalse(request.use_http_dns_if_fail);
}

void LogCancelled(const MultipleURLHttpRequest& request) {
  std::string list;
  for (const auto& entry : request.urls) list.append(" --").append(entry.url.text()).append("\r\n");
  ZO_LOG << "[multiple]Request cancel,internet connected is false url list:\r\n" << list;
}

void LogHosts(const std::vector<std::string>& hosts) {
  ZO_LOG << "[multiple]Use http dns,host_list size:" << hosts.size();
  ZO_LOG << "[multiple]Use http dns,host:";
  for (const std::string& host : hosts) ZO_LOG << "[multiple] -- " << host;
}

void LogAddresses(const HostCacheResult& addresses) {
  for (const auto& [host, ips] : addresses) {
    ZO_LOG << "[multiple]User http dns, host:" << host << "ip list:";
    for (const std::string& ip : ips) ZO_LOG << "[multiple]User http dns, ------" << ip;
  }
}

// The environment comes up also when the system gives the server no thread.
void StartOrLog(zo_net::DnsServer& server) {
  try {
    server.Start();
  } catch (const std::system_error& error) {
    ZO_LOG << "dns server thread failed:" << error.what();
  }
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
  failure_reporter_ = std::make_shared<FailureReporter>(*dns_server_, work_thread_);
  failure_reporter_->SetEnvironmentConfig(GetEnvironmentConfig());
  if (const auto config = GetEnvironmentConfig()) {
    config->SetHttpRequestInvoker(
        Weakly(this, [](auto& self, const MultipleURLHttpRequest& request, bool post) {
          self.OnHttpRequest(request, post);
        }));
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
      work_thread_->PostTask(
          Weakly(this, [request](auto&) { request.result_callback(true, false, "", ""); }));
      return;
    }
  }
  // A helper needs a thread that its timers and answers can come back to.
  if (post_to_work_thread || zo_base::GetCurrentTaskLoop() == nullptr) {
    const auto copy = std::make_shared<MultipleURLHttpRequest>(request);  // The task runs once.
    work_thread_->PostTask(
        Weakly(this, [copy](auto& self) { self.InvokeMultipleURLHttpRequest(std::move(*copy)); }));
  } else {
    InvokeMultipleURLHttpRequest(request);
  }
}

// A separate function, so that leak checkers can suppress exactly the helpers that an exit leaves
// allocated.
MultipleURLHttpRequestHelper* HttpAgent::MakeUnownedHelper() {
  return new MultipleURLHttpRequestHelper;
}

void HttpAgent::InvokeMultipleURLHttpRequest(MultipleURLHttpRequest request) {
  auto* const helper = MakeUnownedHelper();
  helper->SetEnvironmentConfig(GetEnvironmentConfig());
  helper->SetStopFlag(stopped_);
  // A process can be so short of thread-local keys that the thread doesn't know its loop.
  if (zo_base::GetCurrentTaskLoop() == nullptr) helper->SetTaskLoop(work_thread_->GetTaskLoop());
  const bool has_urls = !request.urls.empty();
  helper->SetRequest(std::move(request));
  helper->Connect<const bool, const bool, const std::string, const std::string,
                  const MultipleURLHttpRequest>(
      SIG_ALL_SUB_REQUEST_RETURN,
      Weakly(this, [helper](auto& self, bool stop, bool success, const std::string& headers,
                            const std::string& body, const MultipleURLHttpRequest& adjusted) {
        const std::shared_ptr<MultipleURLHttpRequestHelper> owned(helper);
        const auto outcome =
            std::make_shared<const Outcome>(Outcome{stop, success, headers, body, adjusted});
        const auto items = std::make_shared<std::list<_StatisticItem>>(owned->TakeStatisticItems());
        self.work_thread_->PostTask(Weakly(
            &self, [outcome, items](auto& on_thread) { on_thread.FinishRequest(outcome, items); }));
      }));
  helper->InvokeRequest();
  // Without a URL there is no signal.
  if (!has_urls) delete helper;
}

void HttpAgent::FinishRequest(const std::shared_ptr<const Outcome>& outcome,
                              const FailureReporter::Items& items) {
  ZO_ASSERT(work_thread_->IsCurrentThread());
  if (GetEnvironmentConfig() == nullptr) return;
  failure_reporter_->Report(items);
  if (!outcome->success) {
    LogFailed(outcome->request);
    if (outcome->request.use_http_dns_if_fail) {
      TryOnAddresses(outcome);
      return;
    }
    LogFailed(outcome->request);
  }
  Deliver(*outcome, outcome->stop);
}

void HttpAgent::FromatStatisticItemList(const std::list<_StatisticItem>& items,
                                        const StatisticReport& report) {
  failure_reporter_->Complete(std::make_shared<std::list<_StatisticItem>>(items), report);
}

void HttpAgent::TryOnAddresses(const std::shared_ptr<const Outcome>& outcome) {
  const MultipleURLHttpRequest& request = outcome->request;
  const std::vector<std::string> hosts = NamedHostsOf(request);
  if (hosts.empty()) {
    ZO_LOG << "[multiple]Use http dns,host list empty";
    Deliver(*outcome, outcome->stop);
    return;
  }
  LogHosts(hosts);
  const auto on_addresses = Weakly(this, [outcome](auto& self, const HostCacheResult& addresses) {
    self.work_thread_->PostTask(Weakly(&self, [outcome, addresses](auto& on_thread) {
      on_thread.OnAddressesKnown(*outcome, addresses);
    }));
    return self.GetEnvironmentConfig() != nullptr;
  });
  const bool asked =
      http_dns_service_->InvokeQuery(request.address_family, hosts, on_addresses, request.context);
  if (!asked) Deliver(*outcome, outcome->stop);
}

void HttpAgent::OnAddressesKnown(const Outcome& outcome, const HostCacheResult& addresses) {
  ZO_ASSERT(work_thread_->IsCurrentThread());
  LogAddresses(addresses);
  MultipleURLHttpRequest request = OnAddresses(outcome.request, addresses);
  if (request.urls.empty()) {
    ZO_LOG << "[multiple]Use http dns,url empty";
    Deliver(outcome, true);
    return;
  }
  InvokeMultipleURLHttpRequest(std::move(request));
}

void HttpAgent::Deliver(const Outcome& outcome, bool stop) {
  if (GetEnvironmentConfig() == nullptr) return;
  const auto& callback = outcome.request.result_callback;
  if (callback) callback(stop, outcome.success, outcome.headers, outcome.body);
}

}  // namespace zo_tarvel
