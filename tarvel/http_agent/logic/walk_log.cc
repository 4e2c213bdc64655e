#include "tarvel/http_agent/logic/walk_log.h"

#include <string>

#include "base/log/log.h"
#include "base/text/text_of.h"

namespace zo_tarvel {

using zo_base::TextOf;

void WalkLog::RequestTaken() const {
  ZO_LOG << "[multiple]Invoke send multiple_time_out:" << request_.multiple_time_out
         << " time_out:" << request_.time_out
         << " use http dns:" << TextOf(request_.use_http_dns_if_fail);
  UrlList("raw");
}

void WalkLog::HttpDnsIsOff() const {
  ZO_LOG << "[multiple]Unenable httpdns,reset use_http_dns_if_fail flag false";
}

void WalkLog::RequestAdjusted() const { UrlList("adjustment"); }

void WalkLog::UrlList(const char* title) const {
  if (zo_base::GetLogWriterFor(zo_base::kLogApp) == nullptr) return;
  std::string text = "Invoke send multiple url\r\n-----------------------\r\nurl list[";
  text.append(title).append("]:\r\n");
  for (const auto& [host, url] : request_.urls) {
    text.append("host:").append(host).append(" url:").append(url).append("\r\n");
  }
  ZO_LOG << "[multiple]" << text << "-----------------------";
}

void WalkLog::NoUrl() const { ZO_LOG << "[multiple] Request url list empty"; }

void WalkLog::UrlStarted(std::int32_t index) const {
  ZO_LOG << "[multiple]Send sub url request:" << UrlAt(index);
  ZO_LOG << "[multiple]Start timer index:" << index;
}

void WalkLog::UrlTakesLong(std::int32_t index, bool urls_left, std::int32_t next) const {
  ZO_LOG << "[multiple][time out]Sub url request time out index:" << index;
  ZO_LOG << "[multiple][time out]Stop sub url request timer index :" << index;
  ZO_LOG << "[multiple][time out]All url requested :" << TextOf(!urls_left);
  if (!urls_left) return;
  ZO_LOG << "[multiple][time out]Switch to index :" << next << " triggered by :" << index;
}

void WalkLog::Answered(const SubRequestResult& result, bool urls_left) const {
  ZO_LOG << "[multiple][rsp]Index:" << result.index << " code :" << result.code;
  ZO_LOG << "[multiple][rsp]All url requested :" << TextOf(!urls_left);
}

void WalkLog::Judged(const SubRequestResult& result,
                     const MultipleURLHttpRequest::CheckCallbackResult& verdict) const {
  const std::string of_url =
      ",index :" + std::to_string(result.index) + " url:" + UrlAt(result.index);
  if (verdict.success) {
    ZO_LOG << "[multiple][rsp] true" << of_url;
    return;
  }
  ZO_LOG << "[multiple][rsp]Business check response false" << of_url;
  if (!verdict.stop) return;
  ZO_LOG << "[multiple][rsp]Business check response false" << of_url << " stop :" << TextOf(true);
}

void WalkLog::TimerRemoved(std::int32_t index, bool was_running) const {
  if (was_running) ZO_LOG << "[multiple][rsp]Stop timer index :" << index;
  ZO_LOG << "[multiple][rsp]Remove timer index :" << index;
}

void WalkLog::MoveAfterFailure(std::int32_t index, const WalkStanding& standing, WalkMove move,
                               std::int32_t next) const {
  if (standing.urls_left) {
    ZO_LOG << "[multiple][rsp]Has waitting request " << TextOf(standing.timer_runs);
  }
  if (move == WalkMove::kStartNext) {
    ZO_LOG << "[multiple][rsp]Switch to index :" << next << " triggered by :" << index
           << " url:" << UrlAt(next);
  } else if (move == WalkMove::kEnd) {
    ZO_LOG << "[multiple][rsp]All sub url has been requested";
  }
}

void WalkLog::Released() const { ZO_LOG << "[multiple]Request return,release request object"; }

}  // namespace zo_tarvel
