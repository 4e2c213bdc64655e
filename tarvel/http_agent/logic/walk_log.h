#pragma once

#include <cstdint>

#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"
#include "tarvel/http_agent/logic/statistic_item.h"
#include "tarvel/http_agent/logic/walk.h"

namespace zo_tarvel {

// The lines that a walk along the URLs of a request writes to the log, one function for each step.
//
// Threads: that of the walk. Ownership: the request outlives this, and may change meanwhile.
class WalkLog {
 public:
  explicit WalkLog(const MultipleURLHttpRequest& request) : request_(request) {}

  void RequestTaken() const;
  void HttpDnsIsOff() const;
  void RequestAdjusted() const;
  void NoUrl() const;
  void UrlStarted(std::int32_t index) const;
  // `next` is started now if `urls_left`. So it is below.
  void UrlTakesLong(std::int32_t index, bool urls_left, std::int32_t next) const;
  void Answered(const SubRequestResult& result, bool urls_left) const;
  void Judged(const SubRequestResult& result,
              const MultipleURLHttpRequest::CheckCallbackResult& verdict) const;
  void TimerRemoved(std::int32_t index, bool was_running) const;
  void MoveAfterFailure(std::int32_t index, const WalkStanding& standing, WalkMove move,
                        std::int32_t next) const;
  void Released() const;

 private:
  void UrlList(const char* title) const;
  const std::string& UrlAt(std::int32_t index) const { return request_.urls[index].url; }

  const MultipleURLHttpRequest& request_;
};

}  // namespace zo_tarvel
