#pragma once

#include <cstdint>
#include <string>

#include "base/log/log.h"
#include "base/text/strings.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"
#include "tarvel/http_agent/logic/statistic_item.h"

// The lines that a walk along the URLs of a request writes to the log, one function for each step.
// Any thread.
namespace zo_tarvel::walk_log {

using zo_base::TrueOrFalse;

inline void UrlList(const char* title, const MultipleURLHttpRequest& request) {
  if (zo_base::GetLogWriterFor(zo_base::kLogApp) == nullptr) return;
  std::string text = "Invoke send multiple url\r\n-----------------------\r\nurl list[";
  text.append(title).append("]:\r\n");
  for (const auto& [host, url] : request.urls) {
    text.append("host:").append(host).append(" url:").append(url.text()).append("\r\n");
  }
  ZO_LOG << "[multiple]" << text << "-----------------------";
}

inline void RequestTaken(const MultipleURLHttpRequest& request) {
  ZO_LOG << "[multiple]Invoke send multiple_time_out:" << request.multiple_time_out
         << " time_out:" << request.time_out
         << " use http dns:" << TrueOrFalse(request.use_http_dns_if_fail);
  UrlList("raw", request);
}

inline void UrlStarted(std::int32_t index, const std::string& url) {
  ZO_LOG << "[multiple]Send sub url request:" << url;
  ZO_LOG << "[multiple]Start timer index:" << index;
}

// If `urls_left`, the URL at `next` is started now.
inline void UrlTakesLong(std::int32_t index, bool urls_left, std::int32_t next) {
  ZO_LOG << "[multiple][time out]Sub url request time out index:" << index;
  ZO_LOG << "[multiple][time out]Stop sub url request timer index :" << index;
  ZO_LOG << "[multiple][time out]All url requested :" << TrueOrFalse(!urls_left);
  if (!urls_left) return;
  ZO_LOG << "[multiple][time out]Switch to index :" << next << " triggered by :" << index;
}

inline void Answered(std::int32_t index, std::int32_t code, bool urls_left) {
  ZO_LOG << "[multiple][rsp]Index:" << index << " code :" << code;
  ZO_LOG << "[multiple][rsp]All url requested :" << TrueOrFalse(!urls_left);
}

inline void Judged(std::int32_t index, const std::string& url,
                   const MultipleURLHttpRequest::CheckCallbackResult& verdict) {
  const std::string what = ",index :" + std::to_string(index) + " url:" + url;
  if (verdict.success) {
    ZO_LOG << "[multiple][rsp] true" << what;
    return;
  }
  ZO_LOG << "[multiple][rsp]Business check response false" << what;
  if (verdict.stop)
    ZO_LOG << "[multiple][rsp]Business check response false" << what << " stop :true";
}

// A line of its own: what a server sent can't pretend to be another.
inline void FailureReason(const SubRequestResult& result, const std::string& error_message,
                          std::int64_t duration_ms) {
  constexpr std::size_t kLongestReason = 256;
  const std::string& reason =
      result.code == 0 && !result.body.empty() ? result.body : error_message;
  ZO_LOG << "[multiple][rsp]Failure reason index :" << result.index << " code :" << result.code
         << " duration :" << duration_ms
         << " ms reason :" << zo_base::Printable(reason, kLongestReason);
}

inline void TimerRemoved(std::int32_t index, bool was_running) {
  if (was_running) ZO_LOG << "[multiple][rsp]Stop timer index :" << index;
  ZO_LOG << "[multiple][rsp]Remove timer index :" << index;
}

// Unless `must_wait`, the URL at `next` is started now.
inline void FailureWithUrlsLeft(std::int32_t index, bool must_wait, std::int32_t next,
                                const std::string& next_url) {
  ZO_LOG << "[multiple][rsp]Has waitting request " << TrueOrFalse(must_wait);
  if (must_wait) return;
  ZO_LOG << "[multiple][rsp]Switch to index :" << next << " triggered by :" << index
         << " url:" << next_url;
}

}  // namespace zo_tarvel::walk_log
