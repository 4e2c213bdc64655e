#pragma once

#include <tarvel/tarvel.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/lock/recursive_mutex.h"
#include "base/object/signal_slot.h"
#include "base/object/weakly.h"
#include "base/process/forked_child.h"
#include "base/process/wall_clock.h"
#include "base/thread/library_call.h"
#include "base/thread/task_thread.h"
#include "base/thread/timer.h"
#include "business/tarvel_lbs/client_callback.h"
#include "business/tarvel_lbs/count_timer_invoker.h"
#include "business/tarvel_lbs/host_chooser/host_chooser.h"
#include "business/tarvel_lbs/lbs_answer.h"
#include "business/tarvel_lbs/lbs_response.h"
#include "business/tarvel_lbs/lbs_settings.h"
#include "business/tarvel_lbs/msg_stat_info.h"
#include "tarvel/environment/business_service.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

// Keeps the answer of the LBS server fresh, and serves link addresses and texts from it.
//
// Threads: the interface from any. Its own thread, "lbs service", has the update logic, the timer
// and the client's LBSCallback and AccIDGetter. The check and the result of a request come on the
// agent's work thread, signals of the configuration on their emitter's.
// Ownership: the hosting object owns it and stops its thread. All that crosses a thread holds it
// weakly.
//
// Locks: `lock`, `values_lock` and a chooser's are held for a look or a change only, never over a
// log line or another lock: the client's log function may ask for links out of any line, while
// another thread does the same. `answer_lock` comes before all of them.
class ZOTarvelLBSServiceImpl final : public IZOTarvelLBSService,
                                     public IBusinessService,
                                     public virtual zo_base::TaskThread {
 public:
  // `wall_clock` times the life of answers.
  explicit ZOTarvelLBSServiceImpl(zo_base::WallClock wall_clock = zo_base::WallClockMilliseconds);
  ~ZOTarvelLBSServiceImpl() override;

  bool Init(const _ZOTarvelLBSSettings& record) override;
  void Update(EMAddressFamily family, bool force) override;
  void SetLBSCallback(LBSCallback callback, void* user) override;
  void SetAccIDGetter(AccIDGetter getter, void* user) override;
  void SetRequestErrorCollector(RequestErrorCollector collector, void* user) override;
  void GetLBSResponse(bool no_wait, char* out) override;
  bool GetLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) override;
  void GetZEBDL(char* out) override;
  void GetZEBDLList(char* out) override;
  void GetZEBList(char* out) override;
  using TaskThread::GetName;
  void GetName(char* out) override;
  void GetDesc(char* out) override;
  std::int32_t GetLinkCount() override;
  bool GetCurrentLinkAddress(char* addr, std::int32_t* port, EMAddressFamily* family) override;
  void OnCurrentLinkConnectSucceed(const char* host, std::int32_t port) override;
  void GetMsgStatInfo(_ZOTarvelMsgStatInfo* info) override;

  // Ends the thread and all that calls the client: requests that wait for others to join them come
  // to nothing, and an answer that is being looked at is waited for, except on the library's own
  // threads.
  void Stop() override;

 private:
  // The chooser of the addresses that the client gets.
  static constexpr std::int32_t kLinkChooser = 0;

  // Source of the active answer. Only a freshly fetched one restarts the lifetime; a cached one
  // would otherwise never expire.
  enum class AnswerOrigin { kKept, kFetched };

  // One request to the server. The token tells whether its answer still counts.
  struct UpdateRequest {
    zo_net::AddressFamily family = zo_net::kAddressFamilyAny;
    std::string token;
  };

  // What a check of the agent looks at.
  struct SubResponse {
    std::int32_t index;
    std::int32_t code;
    const std::string& url;
    const std::string& headers;
    const std::string& body;
  };

  // A task `f(ZOTarvelLBSServiceImpl&)` that does nothing once the service has gone.
  template <class F>
  auto Weakly(F f) {
    return zo_base::Weakly(shared_from_this<ZOTarvelLBSServiceImpl>(), std::move(f));
  }

  // In the client's log function: has `f(ZOTarvelLBSServiceImpl&)` run later, and returns true. In
  // a dead forked child true as well.
  template <class F>
  bool IsPutOff(F f) {
    if (zo_base::InForkedChild()) return true;
    if (!zo_base::InLogFunction()) return false;
    zo_base::RunAfterLibraryCall(Weakly(std::move(f)));
    return true;
  }

  // --- Start ---
  void PrepInit(const _ZOTarvelLBSSettings& record);
  void EnsureThread();  // Starts it unless it runs.
  void ConnectToConfig(_EnvironmentConfig& config);
  void OnOwnThreadBegin();

  // --- Update ---
  void OnNetworkChanged(zo_net::AddressFamily family);
  void OnBusinessTokenChanged();
  // Passes a request for an update through the invoker. Dropped while there is none.
  void RequestUpdate(bool immediately, zo_net::AddressFamily family, bool force);
  void UpdateLBS(zo_net::AddressFamily family, bool force);
  void SendRequest(const UpdateRequest& update);
  MultipleURLHttpRequest MakeRequest(const UpdateRequest& update, const _EnvironmentConfig& config);
  std::vector<UrlEntry> MakeUrlEntries(const UpdateRequest& update,
                                       const _EnvironmentConfig& config);
  std::string GetAccID();
  MultipleURLHttpRequest::CheckCallbackResult CheckSubResponse(const UpdateRequest& update,
                                                               const SubResponse& answer);
  void TellCollector(const SubResponse& answer);
  void OnUpdateEnd(const UpdateRequest& update, bool stop, bool success, const std::string& body);
  void TellClient(bool success);
  void DelayUpdate(std::int64_t delay_ms);
  std::int64_t TimeToUpdate() const;
  std::int64_t DelayAfterSuccess() const;
  void OnTtlExhausted();
  void AwaitUpdate();
  void AwaitAnswerUnderWay() ZO_EXCLUDES(answer_lock);

  // --- Answer ---
  bool ParseLBSResponse(const std::string& rsp, const std::string& ip_version, AnswerOrigin origin);
  // Answers the address picked from "link.default".
  std::string ResetLinkHosts(const LBSAnswer& answer) ZO_EXCLUDES(lock);
  void StoreTexts(const LBSAnswer& answer, const std::string& def_link);
  void StoreMsgStatInfo(const LBSAnswer& answer);
  void StoreExpireTime(const LBSAnswer& answer, AnswerOrigin origin);

  // --- Interface ---
  bool IsInitd(const char* operation) const;
  void CopyText(const char* operation, const char* key, char* out) const;
  std::shared_ptr<HostChooser> LinkChooser() const ZO_EXCLUDES(lock);
  zo_net::AddressFamily AddressFamily() const {
    return static_cast<zo_net::AddressFamily>(addr_family.load());
  }
  std::shared_ptr<CountTimerInvoker> Invoker() ZO_EXCLUDES(values_lock);

  const zo_base::WallClock wall_clock;
  std::atomic<bool> updatting_lbs_{false};  // An update is under way, or stuck without a URL.
  // Updates that were begun and have not ended: without one, nothing will clear the flag above.
  std::atomic<std::int32_t> updates_in_flight_{0};
  std::atomic<bool> initd{false};

  zo_base::_thread_recursive_mutex init_lock;
  LBSSettings settings;                      // Not locked: constant once `initd` is set.
  std::atomic<std::int32_t> addr_family{0};  // Of the settings, until the network changes.
  LBSResponse response;

  mutable zo_base::_thread_recursive_mutex lock;
  std::map<std::int32_t, std::shared_ptr<HostChooser>> link_hosts ZO_GUARDED_BY(lock);

  ClientCallback<LBSCallback> lbs_callback;
  ClientCallback<AccIDGetter> acc_id_getter;
  ClientCallback<RequestErrorCollector> request_error_collector;

  // Never held while anything is called.
  mutable zo_base::_thread_recursive_mutex values_lock;
  std::shared_ptr<CountTimerInvoker> count_invoker ZO_GUARDED_BY(values_lock);
  MsgStatInfo msg_stat_info ZO_GUARDED_BY(values_lock);

  // Held while an answer is looked at on the agent's threads.
  zo_base::_thread_recursive_mutex answer_lock;
  std::atomic<bool> detached{false};  // Answers don't count any more.

  zo_base::Timer delay_timer;  // The life time of the answer.
  // Not locked: set by Init, used by the destructor.
  std::vector<zo_sigslot::connection> connections;
};

}  // namespace zo_tarvel
