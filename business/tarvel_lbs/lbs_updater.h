#pragma once

#include "base/object/signal_slot.h"
#include "base/thread/timer.h"
#include "business/tarvel_lbs/active_answer.h"
#include "business/tarvel_lbs/count_timer_invoker.h"
#include "business/tarvel_lbs/update_request.h"
#include "business/tarvel_lbs/update_state.h"

namespace zo_tarvel {

// Decides when the LBS server is asked, asks it, and makes its answers active.
//
// Threads: requests for an update come from any. The service's thread sends the requests, and runs
// the timer and the client's LBSCallback and AccIDGetter. The agent's work thread brings the check
// and the result of a request. Signals of the configuration come on their emitter's thread.
// Ownership: part of the service, which is its thread as well. All callbacks hold the service
// weakly.
class LBSUpdater : public EnvironmentConfigGetterBase {
 public:
  // All outlive this.
  LBSUpdater(zo_base::TaskThread& thread, LBSSettings& settings, ActiveAnswer& answer)
      : thread(thread), settings(settings), answer(answer), delay_timer(thread.GetTaskLoop()) {}
  ~LBSUpdater() override;

  // Listens to the signals of `config`, which may be null.
  void Connect(const std::shared_ptr<_EnvironmentConfig>& config);
  // From now on the service's thread is started when it is needed.
  void SetInitd() { updatting_lbs_.On(UpdateEvent::kInit); }
  bool initd() const { return updatting_lbs_.state() != UpdateState::kBuilt; }
  // Without its thread the service still hands out what it has. Each update asks for it again.
  void EnsureThread();
  void OnThreadBegin();
  // Drops the gathered requests for an update, and all later ones.
  void StopGathering();
  // Makes the updater ignore all later answers.
  void Detach() { updatting_lbs_.On(UpdateEvent::kDetach); }
  // Waits until the check or the result that another thread is handling has ended.
  void AwaitAnswerUnderWay() ZO_EXCLUDES(answer_lock);

  // See IZOTarvelLBSService. After SetInitd.
  void Update(zo_net::AddressFamily family, bool force);
  void OnLinksUsedUp() { RequestUpdate(true, Family(), false); }
  // Waits until the update under way has ended. Returns at once where the wait would have no end.
  void AwaitUpdate();

  ClientCallback<LBSCallback> lbs_callback;
  ClientCallback<AccIDGetter> acc_id_getter;
  ClientCallback<RequestErrorCollector> request_error_collector;

 private:
  // Shares the ownership of the service.
  std::shared_ptr<LBSUpdater> Self() {
    return {thread.shared_from_this<zo_base::TaskThread>(), this};
  }
  zo_net::AddressFamily Family() const {
    return static_cast<zo_net::AddressFamily>(settings.addr_family.load());
  }
  // Whether answers are ignored.
  bool IsDetached() const { return updatting_lbs_.state() == UpdateState::kDetached; }
  std::shared_ptr<CountTimerInvoker> Invoker() ZO_EXCLUDES(invoker_lock);

  void OnNetworkChanged(zo_net::AddressFamily family);
  // Does nothing before the service's thread has begun.
  void RequestUpdate(bool immediately, zo_net::AddressFamily family, bool force);
  void DelayUpdate(std::int64_t delay_ms);
  std::int64_t DelayAfterSuccess() const;
  void OnTtlExhausted();

  void UpdateLBS(zo_net::AddressFamily family, bool force);
  void SendRequest(const std::shared_ptr<UpdateRequest>& update);
  std::string GetAccID();
  MultipleURLHttpRequest::CheckCallback MakeCheck(const std::shared_ptr<UpdateRequest>& update);
  void OnUpdateEnd(const UpdateRequest& update, bool stop, bool success, const std::string& body)
      ZO_EXCLUDES(answer_lock);
  void TellClient(bool success);

  zo_base::TaskThread& thread;
  LBSSettings& settings;
  ActiveAnswer& answer;

  UpdateProgress updatting_lbs_;
  zo_base::Timer delay_timer;  // The life time of the answer.
  // Not locked: set by Connect, used by the destructor.
  std::vector<zo_sigslot::connection> connections;

  // Held while an answer is checked or made active. Taken before all other locks of the service.
  zo_base::_thread_recursive_mutex answer_lock;

  zo_base::_thread_recursive_mutex invoker_lock;  // Not held while the invoker is called.
  std::shared_ptr<CountTimerInvoker> count_invoker ZO_GUARDED_BY(invoker_lock);
};

}  // namespace zo_tarvel
