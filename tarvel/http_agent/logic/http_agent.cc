#include "tarvel/http_agent/logic/http_agent.h"

#include <string>
#include <system_error>
#include <utility>

#include "base/log.h"
#include "base/thread_info.h"
#include "tarvel/environment/exception_reporter_interface.h"
#include "tarvel/http_agent/logic/internet_reachability.h"
#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"

namespace zo_tarvel {
namespace {

void LogFailed(const MultipleURLHttpRequest& request) {
  ZO_LOG << "[multiple]Request return false, use http dns if fail:"
         << (request.use_http_dns_if_fail ? "true" : "false");
}

void LogCancelled(const MultipleURLHttpRequest& request) {
  if (zo_base::GetLogWriterFor(zo_base::kLogApp) == nullptr) return;
  std::string list;
  for (const auto& entry : request.urls) list.append(" --").append(entry.url).append("\r\n");
  ZO_LOG << "[multiple]Request cancel,internet connected is false url list:\r\n" << list;
}

}  // namespace

HttpAgent::~HttpAgent() { Uninit(); }

bool HttpAgent::Init() {
  std::call_once(init_flag_, [this] { InitOnce(); });
  return true;
}

void HttpAgent::InitOnce() {
  work_thread_ = std::make_shared<zo_base::TaskThread>("http_agent_work");
  if (const auto config = GetEnvironmentConfig()) {
    const std::weak_ptr<HttpAgent> weak = shared_from_this<HttpAgent>();
    config->SetHttpRequestInvoker(
        [weak](const MultipleURLHttpRequest& request, bool post_to_work_thread) {
          if (const auto agent = weak.lock()) agent->OnHttpRequest(request, post_to_work_thread);
        });
  }
  SetTaskPosterOfReporter(work_thread_->GetTaskLoop());
  try {
    work_thread_->Start();
  } catch (const std::system_error& error) {
    ZO_LOG << "http agent thread failed:" << error.what();
  }
}

void HttpAgent::Uninit() {
  SetTaskPosterOfReporter(nullptr);
  if (work_thread_) work_thread_->Stop();
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

// In a function of its own, so that what is left behind at an exit can be told from all else.
MultipleURLHttpRequestHelper* HttpAgent::MakeUnownedHelper() {
  return new MultipleURLHttpRequestHelper;
}

void HttpAgent::InvokeMultipleURLHttpRequest(const MultipleURLHttpRequest& request) {
  const std::weak_ptr<HttpAgent> weak = shared_from_this<HttpAgent>();
  auto* const helper = MakeUnownedHelper();
  helper->SetEnvironmentConfig(GetEnvironmentConfig());
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
        agent->PostToWorkThread(
            [outcome = std::make_shared<Outcome>(
                 Outcome{stop, success, headers, body, adjusted, owned->statistic_items()})](
                HttpAgent& on_thread) { on_thread.FinishRequest(*outcome); });
      });
  helper->InvokeRequest();
  // Without a URL there will be no signal.
  if (request.urls.empty()) delete helper;
}

// Where a logical request really ends.
void HttpAgent::FinishRequest(const Outcome& outcome) {
  const MultipleURLHttpRequest& request = outcome.request;
  if (GetEnvironmentConfig() == nullptr) return;
  if (!outcome.success) {
    LogFailed(request);
    if (!request.use_http_dns_if_fail) LogFailed(request);
  }
  if (GetEnvironmentConfig() == nullptr) return;  // A log function of the client's may have exited.
  if (request.result_callback) {
    request.result_callback(outcome.stop, outcome.success, outcome.headers, outcome.body);
  }
}

}  // namespace zo_tarvel
