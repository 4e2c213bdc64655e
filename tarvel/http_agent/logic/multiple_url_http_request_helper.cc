#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"

#include <algorithm>
#include <utility>

#include "base/log/log.h"
#include "base/process/wall_clock.h"
#include "base/text/text_of.h"
#include "base/thread/thread_info.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"
#include "tarvel/http_agent/http_tools/http_tool.h"

namespace zo_tarvel {
namespace {

using zo_base::TextOf;

constexpr char kTraceIdHeader[] = "X-VELDRIN-TRACE-ID";

WalkEvent EventOf(const MultipleURLHttpRequest::CheckCallbackResult& verdict) {
  if (verdict.success) return WalkEvent::kGoodAnswer;
  return verdict.stop ? WalkEvent::kStopAnswer : WalkEvent::kFailedAnswer;
}

bool IsOnIPLiteral(const UrlEntry& entry) {
  return WQBASE::network::IsIPAddress(WQBASE::network::GetHost(entry.url, false));
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

void MultipleURLHttpRequestHelper::SetRequest(const MultipleURLHttpRequest& request) {
  const auto config = ConfigUnlessStopped();
  if (config == nullptr) return;
  request_ = request;
  ZO_LOG << "[multiple]Invoke send multiple_time_out:" << request_.multiple_time_out
         << " time_out:" << request_.time_out
         << " use http dns:" << TextOf(request_.use_http_dns_if_fail);
  LogUrlList("raw");
  if (config->http_request_ip_preferred()) PutIPLiteralsFirst();
  if (!config->enable_httpdns()) {
    ZO_LOG << "[multiple]Unenable httpdns,reset use_http_dns_if_fail flag false";
    request_.use_http_dns_if_fail = false;
  }
  AddTraceHeader();
  LogUrlList("adjustment");
}

void MultipleURLHttpRequestHelper::PutIPLiteralsFirst() {
  std::stable_partition(request_.urls.begin(), request_.urls.end(), IsOnIPLiteral);
}

void MultipleURLHttpRequestHelper::AddTraceHeader() {
  const std::string& trace_id = request_.context.trace_id;
  if (trace_id.empty()) return;
  auto& headers = request_.headers;
  const bool has_one = std::any_of(headers.begin(), headers.end(), [](const std::string& header) {
    return header.find(kTraceIdHeader) != std::string::npos;
  });
  if (!has_one) headers.push_back(std::string(kTraceIdHeader) + ":" + trace_id);
}

// Not even put together when nobody takes it.
void MultipleURLHttpRequestHelper::LogUrlList(const char* title) const {
  if (zo_base::GetLogWriterFor(zo_base::kLogApp) == nullptr) return;
  std::string text = "Invoke send multiple url\r\n-----------------------\r\nurl list[";
  text.append(title).append("]:\r\n");
  for (const auto& [host, url] : request_.urls) {
    text.append("host:").append(host).append(" url:").append(url).append("\r\n");
  }
  ZO_LOG << "[multiple]" << text << "-----------------------";
}

void MultipleURLHttpRequestHelper::InvokeRequest() {
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
  ZO_LOG << "[multiple]Send sub url request:" << request_.urls[index].url;
  ZO_LOG << "[multiple]Start timer index:" << index;
  // The timer goes with this, so its closure needs no guard.
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
  const auto loop = task_loop_.lock();
  HttpTool::PostRequest(sub_request, loop == nullptr ? zo_base::GetCurrentTaskLoop() : loop);
}

void MultipleURLHttpRequestHelper::OnUrlTakesLong(std::int32_t index) {
  ZO_LOG << "[multiple][time out]Sub url request time out index:" << index;
  // The entry stays: it stands for the sub request, which goes on.
  const auto entry = timers_.find(index);
  if (entry == timers_.end()) return;
  entry->second->Stop();
  ZO_LOG << "[multiple][time out]Stop sub url request timer index :" << index;
  const bool all_requested = AllRequested();
  ZO_LOG << "[multiple][time out]All url requested :" << TextOf(all_requested);
  const WalkStanding standing{.urls_left = !all_requested};
  if (MoveAfter(WalkEvent::kUrlTakesLong, standing) != WalkMove::kStartNext) return;
  ZO_LOG << "[multiple][time out]Switch to index :" << current_index_ + 1
         << " triggered by :" << index;
  StartNext();
}

void MultipleURLHttpRequestHelper::OnSubResponse(const SubResponse& response) {
  if (ConfigUnlessStopped() == nullptr) return;
  ZO_LOG << "[multiple][rsp]Index:" << response.index << " code :" << response.code;
  const bool all_requested = AllRequested();
  ZO_LOG << "[multiple][rsp]All url requested :" << TextOf(all_requested);
  const Verdict verdict =
      request_.check_callback(response.index, response.code, UrlOf(response), response.headers,
                              response.body, response.start_time);
  const WalkEvent event = EventOf(verdict);
  TakeNote(event, response, verdict);
  const WalkStanding standing{.urls_left = !all_requested,
                              .timer_runs = AnyTimerRuns(),
                              .others_in_flight = !timers_.empty()};
  Act(MoveAfter(event, standing), event, standing, response, verdict);
}

// What an answer changes whatever becomes of the walk.
void MultipleURLHttpRequestHelper::TakeNote(WalkEvent event, const SubResponse& response,
                                            const Verdict& verdict) {
  if (event == WalkEvent::kGoodAnswer) {
    ZO_LOG << "[multiple][rsp] true,index :" << response.index << " url:" << UrlOf(response);
    MarkCorrected(response);
    return;
  }
  ZO_LOG << "[multiple][rsp]Business check response false,index :" << response.index
         << " url:" << UrlOf(response);
  if (verdict.add_statistic) AddStatisticItem(response, verdict.error_message);
  if (event == WalkEvent::kStopAnswer) {
    ZO_LOG << "[multiple][rsp]Business check response false,index :" << response.index
           << " url:" << UrlOf(response) << " stop :" << TextOf(verdict.stop);
  } else {
    RemoveTimer(response.index);
  }
}

void MultipleURLHttpRequestHelper::Act(WalkMove move, WalkEvent event, const WalkStanding& standing,
                                       const SubResponse& response, const Verdict& verdict) {
  const bool failed = event == WalkEvent::kFailedAnswer;
  if (failed && standing.urls_left) {
    ZO_LOG << "[multiple][rsp]Has waitting request " << TextOf(standing.timer_runs);
  }
  if (move == WalkMove::kStartNext) {
    ZO_LOG << "[multiple][rsp]Switch to index :" << current_index_ + 1
           << " triggered by :" << response.index
           << " url:" << request_.urls[current_index_ + 1].url;
    StartNext();
  } else if (move == WalkMove::kEnd) {
    if (failed) ZO_LOG << "[multiple][rsp]All sub url has been requested";
    StopAllTimers();
    End(verdict, response);
  }
}

const std::string& MultipleURLHttpRequestHelper::UrlOf(const SubResponse& response) const {
  return request_.urls[response.index].url;
}

bool MultipleURLHttpRequestHelper::AllRequested() const {
  return static_cast<std::int64_t>(request_.urls.size()) <= std::int64_t{current_index_} + 1;
}

bool MultipleURLHttpRequestHelper::AnyTimerRuns() const {
  return std::any_of(timers_.begin(), timers_.end(),
                     [](const auto& entry) { return entry.second->IsRunning(); });
}

void MultipleURLHttpRequestHelper::StartNext() {
  ++current_index_;
  InvokeRequest();
}

void MultipleURLHttpRequestHelper::StopAllTimers() {
  for (const auto& [index, timer] : timers_) timer->Stop();
  timers_.clear();
}

void MultipleURLHttpRequestHelper::RemoveTimer(std::int32_t index) {
  const auto entry = timers_.find(index);
  if (entry == timers_.end()) return;
  if (entry->second->IsRunning()) {
    entry->second->Stop();
    ZO_LOG << "[multiple][rsp]Stop timer index :" << index;
  }
  timers_.erase(entry);
  ZO_LOG << "[multiple][rsp]Remove timer index :" << index;
}

void MultipleURLHttpRequestHelper::AddStatisticItem(const SubResponse& response,
                                                    const std::string& error_message) {
  const std::string& url = UrlOf(response);
  const bool known = std::any_of(
      statistic_items_.begin(), statistic_items_.end(),
      [&](const _StatisticItem& item) { return item.code == response.code && item.url == url; });
  if (known) return;
  statistic_items_.push_back(
      MakeStatisticItem(request_, response, error_message, zo_base::WallClockMilliseconds()));
}

void MultipleURLHttpRequestHelper::MarkCorrected(const SubResponse& response) {
  const auto start_time = static_cast<std::int64_t>(response.start_time);
  const std::int64_t duration = zo_base::WallClockMilliseconds() - start_time;
  for (_StatisticItem& item : statistic_items_) {
    item.corrected = true;
    item.corr_url = UrlOf(response);
    item.corr_start_time = start_time;
    item.corr_duration = duration;
  }
}

void MultipleURLHttpRequestHelper::End(const Verdict& verdict, const SubResponse& response) {
  const MultipleURLHttpRequest request = request_;  // Outlives this.
  Emit<const bool, const bool, const std::string, const std::string, const MultipleURLHttpRequest>(
      SIG_ALL_SUB_REQUEST_RETURN, verdict.stop, verdict.success, response.headers, response.body,
      request);
}

}  // namespace zo_tarvel
