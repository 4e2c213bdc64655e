#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "base/object/object.h"
#include "base/thread/thread_checker.h"
#include "base/thread/thread_info.h"
#include "base/thread/timer.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"
#include "tarvel/http_agent/logic/statistic_item.h"

namespace zo_tarvel {

// The logical request is over. Emitted once at most, on the helper's thread. Arguments: const bool
// stop, const bool success, const std::string headers, const std::string body,
// const MultipleURLHttpRequest, as the helper had adjusted it.
inline const char* SIG_ALL_SUB_REQUEST_RETURN() { return "SIG_ALL_SUB_REQUEST_RETURN"; }

// Carries out one logical request: starts its URLs in order, the next one when a URL takes long or
// has failed, has each answer judged, and ends with the first good one.
//
// Threads: the task thread that makes it and calls InvokeRequest; all timers and answers come back
// to it. No lock.
// Ownership: nobody owns it while the request runs. The slot of SIG_ALL_SUB_REQUEST_RETURN takes it
// over and destroys it, so nothing of it is touched after the emission; an answer that comes later
// finds its weak closure dead. When the agent stops first, the helper does nothing any more and is
// never destroyed.
class MultipleURLHttpRequestHelper : public EnvironmentConfigGetterBase,
                                     public zo_base::ZOObjectIMPL {
 public:
  MultipleURLHttpRequestHelper() = default;
  ~MultipleURLHttpRequestHelper() override;

  // Names the loop of the own thread, for a thread that has no record of it.
  void SetTaskLoop(std::weak_ptr<zo_base::ITaskLoop> loop) { task_loop_ = std::move(loop); }

  // Once the flag is true no URL is started, no answer judged and no signal emitted, on whatever
  // thread an answer arrives: the own thread may have ended by then.
  void SetStopFlag(std::shared_ptr<const std::atomic<bool>> flag) { stop_flag_ = std::move(flag); }

  // Adjusts the request to the settings of the environment.
  void SetRequest(MultipleURLHttpRequest request);
  // Starts the URL whose turn it is.
  void InvokeRequest();

  // Hands over the failed answers so far, in the order of their arrival, with their bodies.
  std::list<_StatisticItem> TakeStatisticItems() { return std::move(statistic_items_); }

 private:
  using Verdict = MultipleURLHttpRequest::CheckCallbackResult;

  // Null when the agent has stopped, too.
  std::shared_ptr<_EnvironmentConfig> ConfigUnlessStopped();
  void PostSubRequest(std::int32_t index, std::uint64_t start_time);

  void OnUrlTakesLong(std::int32_t index);
  void OnSubResponse(const SubRequestResult& result);
  void GoOnAfterFailure(const SubRequestResult& result, const Verdict& verdict, bool urls_left);

  bool UrlsLeft() const;
  bool AnyTimerRuns() const;
  void StartNext();
  void RemoveTimer(std::int32_t index);
  void AddStatisticItem(const SubRequestResult& result, const std::string& error_message);
  void MarkCorrected(const SubRequestResult& result);
  // Destroys this.
  void End(const Verdict& verdict, const SubRequestResult& result);

  const zo_base::ThreadChecker thread_checker_;
  std::weak_ptr<zo_base::ITaskLoop> task_loop_ = zo_base::GetCurrentTaskLoop();
  std::shared_ptr<const std::atomic<bool>> stop_flag_;  // Null for a helper without an agent.
  MultipleURLHttpRequest request_;
  // One for each URL that was started and has not answered. Its timer runs while the next URL waits
  // for it.
  std::map<std::int32_t, std::shared_ptr<zo_base::Timer>> timers_;
  std::int32_t current_index_ = 0;             // Of the URL started last.
  std::list<_StatisticItem> statistic_items_;  // Empty unless failures are reported.
  std::size_t reported_bytes_ = 0;             // Of answers, in these items.
};

}  // namespace zo_tarvel
