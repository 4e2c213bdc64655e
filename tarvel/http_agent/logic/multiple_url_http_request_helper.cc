#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"

#include <algorithm>
#include <utility>

#include "base/process/clock.h"
#include "tarvel/http_agent/http_tools/http_tool.h"
#include "tarvel/http_agent/logic/walk_log.h"

namespace zo_tarvel {
namespace {

bool IsOnIPLiteral(const UrlEntry& entry) { return entry.url.is_on_ip(); }

// How much of the failed answers to one request is kept for its exception records. A hostile server
// may list many URLs and answer each with as much as the transport takes.
constexpr std::size_t kMostReportedBytes = std::size_t{1024} * 1024;

// In milliseconds, until now.
std::int64_t DurationOf(const SubRequestResult& result) {
  return zo_base::WallClockMilliseconds() - static_cast<std::int64_t>(result.start_time);
}

void AddTraceHeader(MultipleURLHttpRequest& request) {
  constexpr char kName[] = "X-VELDRIN-TRACE-ID";
  const std::string& trace_id = request.context.trace_id;
  if (trace_id.empty()) return;
  auto& headers = request.headers;
  const bool has_one = std::any_of(headers.begin(), headers.end(), [&](const std::string& header) {
    return header.find(kName) != std::string::npos;
  });
  if (!has_one) headers.push_back(std::string(kName) + ":" + trace_id);
}

}  // namespace

MultipleURLHttpRequestHelper::~MultipleURLHttpRequestHelper() {
  ZO_LOG << "[multiple]Request return,release request object";
}

std::shared_ptr<_EnvironmentConfig> MultipleURLHttpRequestHelper::ConfigUnlessStopped() {
  if (stop_flag_ != nullptr && stop_flag_->load()) return nullptr;
  auto config = GetEnvironmentConfig();
  return config != nullptr && !config->IsExiting() ? config : nullptr;
}

void MultipleURLHttpRequestHelper::SetRequest(MultipleURLHttpRequest request) {
  const auto config = ConfigUnlessStopped();
  if (config == nullptr) return;
  request_ = std::move(request);
  walk_log::RequestTaken(request_);
  if (config->http_request_ip_preferred()) {
    std::stable_partition(request_.urls.begin(), request_.urls.end(), IsOnIPLiteral);
  }
  if (!config->enable_httpdns()) {
    ZO_LOG << "[multiple]Unenable httpdns,reset use_http_dns_if_fail flag false";
    request_.use_http_dns_if_fail = false;
  }
  AddTraceHeader(request_);
  walk_log::UrlList("adjustment", request_);
}

void MultipleURLHttpRequestHelper::InvokeRequest() {
  thread_checker_.AssertSameThread();
  if (ConfigUnlessStopped() == nullptr) return;
  if (request_.urls.empty()) {
    ZO_LOG << "[multiple] Request url list empty";
    if (request_.result_callback) request_.result_callback(true, false, "", "");
    return;
  }
  const std::int32_t index = current_index_;
  const auto timer = std::make_shared<zo_base::Timer>(task_loop_);
  timers_[index] = timer;
  PostSubRequest(index, static_cast<std::uint64_t>(zo_base::WallClockMilliseconds()));
  walk_log::UrlStarted(index, request_.urls[index].url.text());
  // The timer is destroyed with this, so its closure needs no guard.
  timer->Start(
      request_.multiple_time_out, [this, index] { OnUrlTakesLong(index); }, 0);
}

void MultipleURLHttpRequestHelper::PostSubRequest(std::int32_t index, std::uint64_t start_time) {
  HttpRequest sub_request;
  sub_request.headers = request_.headers;
  sub_request.time_out = request_.time_out;
  sub_request.type = request_.request_type;
  sub_request.host = request_.urls[index].host;
  sub_request.url = request_.urls[index].url;
  sub_request.body = request_.body;
  sub_request.callback =
      ToWeakClosure<bool>([this, index, start_time](std::int32_t code, const std::string& headers,
                                                    const std::string& body) {
        OnSubResponse({index, start_time, code, headers, body});
        return true;
      });
  // Never straight back into this function: so the answer takes the thread's own loop at least.
  const bool is_gone = task_loop_.expired();
  HttpTool::PostRequest(sub_request, is_gone ? zo_base::GetCurrentTaskLoop() : task_loop_);
}

void MultipleURLHttpRequestHelper::OnUrlTakesLong(std::int32_t index) {
  thread_checker_.AssertSameThread();
  const auto entry = timers_.find(index);
  if (entry == timers_.end()) return;
  entry->second->Stop();  // The entry stays, because the sub request goes on.
  walk_log::UrlTakesLong(index, UrlsLeft(), current_index_ + 1);
  if (UrlsLeft()) StartNext();
}

void MultipleURLHttpRequestHelper::OnSubResponse(const SubRequestResult& result) {
  if (ConfigUnlessStopped() == nullptr) return;
  thread_checker_.AssertSameThread();
  if (request_.urls.empty()) return;  // The walk has ended, and nobody has destroyed this.
  const bool urls_left = UrlsLeft();
  walk_log::Answered(result.index, result.code, urls_left);
  const std::string& url = request_.urls[result.index].url.text();
  const Verdict verdict = request_.check_callback(result.index, result.code, url, result.headers,
                                                  result.body, result.start_time);
  walk_log::Judged(result.index, url, verdict);
  if (!verdict.success) {
    walk_log::FailureReason(result, verdict.error_message, DurationOf(result));
  }
  if (verdict.success) {
    MarkCorrected(result);
  } else if (verdict.add_statistic) {
    AddStatisticItem(result, verdict.error_message);
  }
  if (verdict.success || verdict.stop) {
    End(verdict, result);
  } else {
    GoOnAfterFailure(result, verdict, urls_left);
  }
}

void MultipleURLHttpRequestHelper::GoOnAfterFailure(const SubRequestResult& result,
                                                    const Verdict& verdict, bool urls_left) {
  RemoveTimer(result.index);
  if (urls_left) {
    const bool must_wait = AnyTimerRuns();  // That timer starts the next URL.
    const std::int32_t next = current_index_ + 1;
    walk_log::FailureWithUrlsLeft(result.index, must_wait, next, request_.urls[next].url.text());
    if (!must_wait) StartNext();
  } else if (timers_.empty()) {
    ZO_LOG << "[multiple][rsp]All sub url has been requested";
    End(verdict, result);
  }
}

bool MultipleURLHttpRequestHelper::UrlsLeft() const {
  return static_cast<std::int64_t>(request_.urls.size()) > std::int64_t{current_index_} + 1;
}

bool MultipleURLHttpRequestHelper::AnyTimerRuns() const {
  return std::any_of(timers_.begin(), timers_.end(),
                     [](const auto& entry) { return entry.second->IsRunning(); });
}

void MultipleURLHttpRequestHelper::StartNext() {
  ++current_index_;
  InvokeRequest();
}

void MultipleURLHttpRequestHelper::RemoveTimer(std::int32_t index) {
  const auto entry = timers_.find(index);
  if (entry == timers_.end()) return;
  const bool was_running = entry->second->IsRunning();
  timers_.erase(entry);
  walk_log::TimerRemoved(index, was_running);
}

void MultipleURLHttpRequestHelper::AddStatisticItem(const SubRequestResult& result,
                                                    const std::string& error_message) {
  const auto config = GetEnvironmentConfig();
  if (config == nullptr || !config->enable_exception_data_reporting()) return;
  const std::string& url = request_.urls[result.index].url.text();
  const bool known = std::any_of(
      statistic_items_.begin(), statistic_items_.end(),
      [&](const _StatisticItem& item) { return item.code == result.code && item.url == url; });
  if (known) return;
  const std::size_t room = kMostReportedBytes - reported_bytes_;
  const std::string headers = result.headers.substr(0, room);
  const std::string body = result.body.substr(0, room - headers.size());
  reported_bytes_ += headers.size() + body.size();
  statistic_items_.push_back(
      MakeStatisticItem(request_, {result.index, result.start_time, result.code, headers, body},
                        error_message, zo_base::WallClockMilliseconds()));
}

void MultipleURLHttpRequestHelper::MarkCorrected(const SubRequestResult& result) {
  const auto start_time = static_cast<std::int64_t>(result.start_time);
  const std::int64_t duration = DurationOf(result);
  for (_StatisticItem& item : statistic_items_) {
    item.corrected = true;
    item.corr_url = request_.urls[result.index].url.text();
    item.corr_start_time = start_time;
    item.corr_duration = duration;
  }
}

void MultipleURLHttpRequestHelper::End(const Verdict& verdict, const SubRequestResult& result) {
  timers_.clear();
  const MultipleURLHttpRequest request = std::move(request_);  // Outlives this.
  Emit<const bool, const bool, const std::string, const std::string, const MultipleURLHttpRequest>(
      SIG_ALL_SUB_REQUEST_RETURN, verdict.stop, verdict.success, result.headers, result.body,
      request);
}

}  // namespace zo_tarvel
