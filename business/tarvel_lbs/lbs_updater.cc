#include "business/tarvel_lbs/lbs_updater.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "base/log/log.h"
#include "base/object/weakly.h"
#include "base/process/forked_child.h"
#include "base/text/strings.h"
#include "base/thread/library_call.h"
#include "base/thread/thread_info.h"
#include "network/http/http_response.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::kHttpOk;
using zo_base::MutexLock;
using zo_base::TextOf;
using zo_base::TrueOrFalse;
using zo_base::Weakly;

// Requests for an update are gathered: this many, or for so many milliseconds.
constexpr std::int32_t kGatheredUpdates = 3;
constexpr std::int32_t kGatheringTime = 1'200;

// When the next update is due, in milliseconds.
constexpr std::int64_t kDelayOfExpired = 20;
constexpr std::int64_t kDelayOfDeadAnswer = 60'000;
constexpr std::int64_t kDelayAfterFailure = 3'600'000;
// Also for an answer that lives longer: otherwise the server could not be sure to reach all
// clients. And a wall clock that was set back delays no update for longer.
constexpr std::int64_t kLongestDelay = 18'000'000;

constexpr std::chrono::milliseconds kUpdatePoll{10};

const char* NullIfEmpty(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

}  // namespace

LBSUpdater::~LBSUpdater() {
  for (auto& connection : connections) connection.disconnect();
}

void LBSUpdater::Connect(const std::shared_ptr<_EnvironmentConfig>& config) {
  SetEnvironmentConfig(config);
  if (config == nullptr) return;
  const auto on_network = [](LBSUpdater& self, auto family) { self.OnNetworkChanged(family); };
  const auto on_token = [](LBSUpdater& self, const std::string&) {
    self.RequestUpdate(true, self.Family(), true);
  };
  connections = {
      config->Connect<zo_net::AddressFamily>(SIG_NetworkChanged, Weakly(Self(), on_network)),
      config->Connect<const std::string>(SIG_BusinessTokenChanged, Weakly(Self(), on_token))};
}

void LBSUpdater::EnsureThread() {
  const std::string failure = thread.StartIfPossible();
  if (!failure.empty()) ZO_LOG << "lbs service thread failed:" << failure;
}

void LBSUpdater::OnThreadBegin() {
  ZO_ASSERT(thread.IsCurrentThread());
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) return;
  {
    MutexLock hold(invoker_lock);
    if (count_invoker == nullptr) {
      count_invoker = std::make_shared<CountTimerInvoker>(
          kGatheredUpdates, kGatheringTime, thread.shared_from_this<zo_base::TaskThread>());
    }
  }
  if (config->GetBusinessToken().empty()) return;
  thread.PostTask(Weakly(Self(), [](LBSUpdater& self) { self.DelayUpdate(0); }));
}

void LBSUpdater::StopGathering() {
  if (const auto invoker = Invoker()) invoker->Stop();
}

void LBSUpdater::AwaitAnswerUnderWay() {
  if (zo_base::InForkedChild()) return;  // It isn't under way here.
  MutexLock hold(answer_lock);
}

std::shared_ptr<CountTimerInvoker> LBSUpdater::Invoker() {
  MutexLock hold(invoker_lock);
  return count_invoker;
}

void LBSUpdater::OnNetworkChanged(zo_net::AddressFamily family) {
  const std::int32_t old_family = settings.addr_family.exchange(family);
  const auto config = GetEnvironmentConfig();
  if (config == nullptr || config->GetBusinessToken().empty()) return;
  RequestUpdate(true, family, old_family != family);
}

void LBSUpdater::Update(zo_net::AddressFamily family, bool force) {
  ZO_LOG << "[lbs]Call Update force = " << TrueOrFalse(force);
  RequestUpdate(force, family, force);
}

void LBSUpdater::RequestUpdate(bool immediately, zo_net::AddressFamily family, bool force) {
  if (initd()) EnsureThread();
  const auto invoker = Invoker();
  if (invoker == nullptr) return;
  const auto update = [family, force](LBSUpdater& self) { self.UpdateLBS(family, force); };
  invoker->Invoke(Weakly(Self(), update), immediately);
}

void LBSUpdater::DelayUpdate(std::int64_t delay_ms) {
  if (delay_ms <= 0) delay_ms = answer.TimeLeft();
  if (delay_ms <= 0) delay_ms = kDelayOfExpired;
  const auto delay = static_cast<std::int32_t>(std::min(delay_ms, kLongestDelay));
  ZO_LOG << "[lbs][lbs cache] update lbs after " << delay << " ms";
  delay_timer.Start(delay, Weakly(Self(), [](LBSUpdater& self) { self.OnTtlExhausted(); }), 0);
}

// A fresh answer with no life left would make all clients ask without a pause.
std::int64_t LBSUpdater::DelayAfterSuccess() const {
  const std::int64_t left = answer.TimeLeft();
  return left > kDelayOfExpired ? left : kDelayOfDeadAnswer;
}

void LBSUpdater::OnTtlExhausted() {
  ZO_ASSERT(thread.IsCurrentThread());
  if (GetEnvironmentConfig() == nullptr) return;
  ZO_LOG << "[lbs][lbs cache] ttl exhausted need update";
  Update(Family(), false);
}

void LBSUpdater::UpdateLBS(zo_net::AddressFamily family, bool force) {
  ZO_LOG << "[lbs]UpdateLBS force = " << TrueOrFalse(force) << " AddressFamily:" << family;
  if (!updatting_lbs_.Begin(force)) {
    ZO_LOG << "[lbs]UpdateLBS updatting_lbs_ = true,return";
    return;
  }
  ZO_LOG << "[lbs]UpdateLBS set updatting = true";
  const auto config = GetEnvironmentConfig();
  const auto update = std::make_shared<UpdateRequest>(
      family, config == nullptr ? std::string() : config->GetBusinessToken());
  thread.PostTask(Weakly(Self(), [update](LBSUpdater& self) { self.SendRequest(update); }));
}

void LBSUpdater::SendRequest(const std::shared_ptr<UpdateRequest>& update) {
  ZO_ASSERT(thread.IsCurrentThread());
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) {
    ZO_LOG << "[lbs]UpdateLBS environment empty";
    updatting_lbs_.On(UpdateEvent::kSettled);
    return;
  }
  const std::string account_id = GetAccID();
  ZO_LOG << "[lbs]Make param id : " << account_id;
  auto request = update->ToHttpRequest(answer.LBSUrls(), account_id, settings, *config);
  if (request.urls.empty()) {
    ZO_LOG << "[lbs] LBS addr url list empty!";
    updatting_lbs_.On(UpdateEvent::kLeftOpen);
    return;
  }
  request.check_callback = MakeCheck(update);
  request.result_callback = Weakly(Self(), [update](LBSUpdater& self, bool stop, bool success,
                                                    const std::string&, const std::string& body) {
    self.OnUpdateEnd(*update, stop, success, body);
  });
  ZO_LOG << "[lbs] Begin update LBS";
  InvokeHttpRequest(request, true);
}

std::string LBSUpdater::GetAccID() {
  char buffer[kAccIDBufferSize] = {};
  const auto getter = acc_id_getter.Get();
  if (getter.function) getter.function(getter.user, buffer);
  std::string id = TextOf(buffer);
  ZO_LOG << "[lbs]GetAccID accid : " << id;
  return id;
}

MultipleURLHttpRequest::CheckCallback LBSUpdater::MakeCheck(
    const std::shared_ptr<UpdateRequest>& update) {
  auto check = Weakly(Self(), [update](LBSUpdater& self, std::int32_t index,
                                       const RequestErrorRecord& record, const std::string& body) {
    MutexLock hold(self.answer_lock);
    UpdateRequest::Verdict verdict{.stop = self.IsDetached(), .error_message = {}};
    if (!verdict.stop) {
      verdict = update->Check(index, record, body, self.GetEnvironmentConfig(),
                              self.request_error_collector);
    }
    return std::optional(verdict);
  });
  return [check = std::move(check)](std::int32_t index, std::int32_t code, const std::string& url,
                                    const std::string& headers, const std::string& body,
                                    std::uint64_t) -> UpdateRequest::Verdict {
    const RequestErrorRecord record{code, NullIfEmpty(url), NullIfEmpty(headers),
                                    NullIfEmpty(body)};
    if (auto verdict = check(index, record, body)) return *std::move(verdict);
    ZO_LOG << "[lbs] Check response strong_this == nullptr";
    return {.stop = true, .error_message = {}};
  };
}

void LBSUpdater::OnUpdateEnd(const UpdateRequest& update, bool stop, bool success,
                             const std::string& body) {
  MutexLock hold(answer_lock);
  if (IsDetached()) return;
  const auto config = GetEnvironmentConfig();
  if (stop || config == nullptr) {
    ZO_LOG << (stop ? "[lbs][update]Update complete [stoped] set updating false"
                    : "[lbs] Update LBS complete env == nullptr");
    updatting_lbs_.On(UpdateEvent::kSettled);
    return;
  }
  const std::string token = config->GetBusinessToken();
  ZO_LOG << "[lbs] Update LBS complete current business token :" << token
         << " request business token:" << update.token;
  if (token != update.token) {
    updatting_lbs_.On(UpdateEvent::kLeftOpen);
    return;
  }
  ZO_LOG << "[lbs] Update LBS success = " << TrueOrFalse(success);
  ZO_LOG_AT(zo_base::kLogProtocol) << "[lbs] Update LBS \r\n-----------------------\r\n"
                                   << body << "\r\n-----------------------";
  if (success) answer.ParseLBSResponse(body, std::to_string(update.family), update.answer);
  TellClient(success);
  updatting_lbs_.On(UpdateEvent::kSettled);
  DelayUpdate(success ? DelayAfterSuccess() : kDelayAfterFailure);
  ZO_LOG << "[lbs]UpdateLBS set updatting = false";
}

void LBSUpdater::TellClient(bool success) {
  if (lbs_callback.Get().function == nullptr) return;
  ZO_LOG << "[lbs] Update LBS compare post task to lbs thread for callback";
  thread.PostTask(Weakly(Self(), [success](LBSUpdater& self) {
    ZO_LOG << "[lbs] Update LBS compare callback sdk";
    const std::string text = self.answer.Text(lbs_key::kRsp);
    // Get the callback only now: the client may have replaced it since, and freed its user data.
    const auto callback = self.lbs_callback.Get();
    if (callback.function) callback.function(success ? kHttpOk : 0, text.c_str(), callback.user);
  }));
}

// A thread of the library must not wait here, since the update may need that thread. The log
// function must not either, since it runs with locks that the update may need. Without the
// service's thread or the environment no answer can come.
void LBSUpdater::AwaitUpdate() {
  if (zo_base::OnLibraryThread() || zo_base::InLogFunction()) return;
  const auto may_end = [this] {
    return thread.IsRunning() && !thread.IsStopping() && GetEnvironmentConfig();
  };
  while (updatting_lbs_.state() == UpdateState::kUpdating && may_end()) {
    std::this_thread::sleep_for(kUpdatePoll);
  }
}

}  // namespace zo_tarvel
