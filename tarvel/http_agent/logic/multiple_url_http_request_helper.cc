#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"

#include <algorithm>

#include "base/process/wall_clock.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"
#include "tarvel/http_agent/http_tools/http_tool.h"

namespace zo_tarvel {
namespace {

WalkEvent EventOf(const MultipleURLHttpRequest::CheckCallbackResult& verdict) {
  if (verdict.success) return WalkEvent::kGoodAnswer;
  return verdict.stop ? WalkEvent::kStopAnswer : WalkEvent::kFailedAnswer;
}

bool IsOnIPLiteral(const UrlEntry& entry) {
  return WQBASE::network::IsIPAddress(WQBASE::network::GetHost(entry.url, false));
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

MultipleURLHttpRequestHelper::~MultipleURLHttpRequestHelper() { log_.Released(); }

std::shared_ptr<_EnvironmentConfig> MultipleURLHttpRequestHelper::ConfigUnlessStopped() {
  if (stop_flag_ != nullptr && stop_flag_->load()) return nullptr;
  auto config = GetEnvironmentConfig();
  return config != nullptr && !config->IsExiting() ? config : nullptr;
}

void MultipleURLHttpRequestHelper::SetRequest(const MultipleURLHttpRequest& request) {
  const auto config = ConfigUnlessStopped();
  if (config == nullptr) return;
  request_ = request;
  log_.RequestTaken();
  if (config->http_request_ip_preferred()) {
    std::stable_partition(request_.urls.begin(), request_.urls.end(), IsOnIPLiteral);
  }
  if (!config->enable_httpdns()) {
    log_.HttpDnsIsOff();
    request_.use_http_dns_if_fail = false;
  }
  AddTraceHeader(request_);
  log_.RequestAdjusted();
}

void MultipleURLHttpRequestHelper::InvokeRequest() {
  if (ConfigUnlessStopped() == nullptr) return;
  if (request_.urls.empty()) {
    log_.NoUrl();
    if (request_.result_callback) request_.result_callback(true, false, "", "");
    return;
  }
  const std::int32_t index = current_index_;
  const auto timer = std::make_shared<zo_base::Timer>(task_loop_);
  timers_[index] = timer;
  PostSubRequest(index, static_cast<std::uint64_t>(zo_base::WallClockMilliseconds()));
  log_.UrlStarted(index);
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
  HttpTool::PostRequest(sub_request, task_loop_);
}

void MultipleURLHttpRequestHelper::OnUrlTakesLong(std::int32_t index) {
  const auto entry = timers_.find(index);
  if (entry == timers_.end()) return;
  entry->second->Stop();  // The entry stays: it stands for the sub request, which goes on.
  const bool urls_left = UrlsLeft();
  log_.UrlTakesLong(index, urls_left, current_index_ + 1);
  const WalkMove move = MoveAfter(WalkEvent::kUrlTakesLong, {.urls_left = urls_left});
  if (move == WalkMove::kStartNext) StartNext();
}

void MultipleURLHttpRequestHelper::OnSubResponse(const SubRequestResult& result) {
  if (ConfigUnlessStopped() == nullptr) return;
  const bool urls_left = UrlsLeft();
  log_.Answered(result, urls_left);
  const Verdict verdict = Judge(result);
  log_.Judged(result, verdict);
  RecordFailures(result, verdict);
  const WalkMove move = MoveAfterAnswer(result.index, verdict, urls_left);
  if (move == WalkMove::kStartNext) StartNext();
  if (move == WalkMove::kEnd) End(verdict, result);
}

MultipleURLHttpRequestHelper::Verdict MultipleURLHttpRequestHelper::Judge(
    const SubRequestResult& result) const {
  return request_.check_callback(result.index, result.code, request_.urls[result.index].url,
                                 result.headers, result.body, result.start_time);
}

void MultipleURLHttpRequestHelper::RecordFailures(const SubRequestResult& result,
                                                  const Verdict& verdict) {
  if (verdict.success) {
    MarkCorrected(result);
  } else if (verdict.add_statistic) {
    AddStatisticItem(result, verdict.error_message);
  }
}

WalkMove MultipleURLHttpRequestHelper::MoveAfterAnswer(std::int32_t index, const Verdict& verdict,
                                                       bool urls_left) {
  const WalkEvent event = EventOf(verdict);
  const bool failed = event == WalkEvent::kFailedAnswer;
  if (failed) RemoveTimer(index);
  const WalkStanding standing{
      .urls_left = urls_left, .timer_runs = AnyTimerRuns(), .others_in_flight = !timers_.empty()};
  const WalkMove move = MoveAfter(event, standing);
  if (failed) log_.MoveAfterFailure(index, standing, move, current_index_ + 1);
  return move;
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
  log_.TimerRemoved(index, was_running);
}

void MultipleURLHttpRequestHelper::AddStatisticItem(const SubRequestResult& result,
                                                    const std::string& error_message) {
  const std::string& url = request_.urls[result.index].url;
  const bool known = std::any_of(
      statistic_items_.begin(), statistic_items_.end(),
      [&](const _StatisticItem& item) { return item.code == result.code && item.url == url; });
  if (known) return;
  statistic_items_.push_back(
      MakeStatisticItem(request_, result, error_message, zo_base::WallClockMilliseconds()));
}

void MultipleURLHttpRequestHelper::MarkCorrected(const SubRequestResult& result) {
  const auto start_time = static_cast<std::int64_t>(result.start_time);
  const std::int64_t duration = zo_base::WallClockMilliseconds() - start_time;
  for (_StatisticItem& item : statistic_items_) {
    item.corrected = true;
    item.corr_url = request_.urls[result.index].url;
    item.corr_start_time = start_time;
    item.corr_duration = duration;
  }
}

void MultipleURLHttpRequestHelper::End(const Verdict& verdict, const SubRequestResult& result) {
  timers_.clear();
  const MultipleURLHttpRequest request = request_;  // Outlives this.
  Emit<const bool, const bool, const std::string, const std::string, const MultipleURLHttpRequest>(
      SIG_ALL_SUB_REQUEST_RETURN, verdict.stop, verdict.success, result.headers, result.body,
      request);
}

}  // namespace zo_tarvel
