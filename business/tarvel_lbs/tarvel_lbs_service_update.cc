// When the LBS server is asked, what it is asked, and what becomes of its answer.

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "base/log/log.h"
#include "base/text/text_of.h"
#include "base/thread/thread_info.h"
#include "business/tarvel_lbs/lbs_request.h"
#include "business/tarvel_lbs/tarvel_lbs_service.h"
#include "network/http/http_response.h"
#include "tarvel/environment/configuration/exception_data.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::kHttpOk;
using zo_base::MutexLock;
using zo_base::TextOf;

// When the next update is due, in milliseconds.
constexpr std::int64_t kDelayOfExpired = 20;
constexpr std::int64_t kDelayOfDeadAnswer = 60'000;
constexpr std::int64_t kDelayAfterFailure = 3'600'000;
// Also for an answer that lives longer: the server can't be sure to reach everybody otherwise. And
// a wall clock that was set back can't hold updates up for longer.
constexpr std::int64_t kLongestDelay = 18'000'000;

constexpr std::chrono::milliseconds kUpdatePoll{10};

const char* NullIfEmpty(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

}  // namespace

// --- What asks for an update ---

void ZOTarvelLBSServiceImpl::OnNetworkChanged(zo_net::AddressFamily family) {
  const std::int32_t old_family = addr_family.exchange(family);
  const auto config = GetEnvironmentConfig();
  if (config == nullptr || config->GetBusinessToken().empty()) return;
  RequestUpdate(true, family, old_family != family);
}

void ZOTarvelLBSServiceImpl::OnBusinessTokenChanged() {
  RequestUpdate(true, AddressFamily(), true);
}

void ZOTarvelLBSServiceImpl::Update(EMAddressFamily family, bool force) {
  const zo_base::LibraryCall call;
  if (IsPutOff([family, force](auto& self) { self.Update(family, force); })) return;
  if (!IsInitd("Update")) return;
  ZO_LOG << "[lbs]Call Update force = " << TextOf(force);
  RequestUpdate(force, static_cast<zo_net::AddressFamily>(family), force);
}

void ZOTarvelLBSServiceImpl::RequestUpdate(bool immediately, zo_net::AddressFamily family,
                                           bool force) {
  if (initd) EnsureThread();
  const auto invoker = Invoker();
  if (invoker == nullptr) return;
  invoker->Invoke(Weakly([family, force](auto& self) { self.UpdateLBS(family, force); }),
                  immediately);
}

// A cached answer has its time from another run, and the wall clock may have jumped since. Neither
// may keep this client from updates, or make it ask all the time.
std::int64_t ZOTarvelLBSServiceImpl::TimeToUpdate() const {
  // No time before 1970: then the difference can't overflow.
  const std::int64_t now = std::max<std::int64_t>(wall_clock(), 0);
  const std::int64_t expire_time = response.GetExpireTime();
  return expire_time > now ? expire_time - now : kDelayOfExpired;
}

// An answer that has come with no life left would be asked for without a pause, by all clients.
std::int64_t ZOTarvelLBSServiceImpl::DelayAfterSuccess() const {
  const std::int64_t delay = TimeToUpdate();
  return delay > kDelayOfExpired ? delay : kDelayOfDeadAnswer;
}

void ZOTarvelLBSServiceImpl::DelayUpdate(std::int64_t delay_ms) {
  if (delay_ms <= 0) delay_ms = TimeToUpdate();
  const auto delay = static_cast<std::int32_t>(std::min(delay_ms, kLongestDelay));
  ZO_LOG << "[lbs][lbs cache] update lbs after " << delay << " ms";
  delay_timer.Start(delay, Weakly([](auto& self) { self.OnTtlExhausted(); }), 0);
}

void ZOTarvelLBSServiceImpl::OnTtlExhausted() {
  if (GetEnvironmentConfig() == nullptr) return;
  ZO_LOG << "[lbs][lbs cache] ttl exhausted need update";
  Update(static_cast<EMAddressFamily>(AddressFamily()), false);
}

// --- The request ---

void ZOTarvelLBSServiceImpl::UpdateLBS(zo_net::AddressFamily family, bool force) {
  ZO_LOG << "[lbs]UpdateLBS force = " << TextOf(force) << " AddressFamily:" << family;
  ++updates_in_flight_;  // First: who finds the flag set and nothing in flight doesn't wait.
  // A forced update may overlap one in flight.
  if (updatting_lbs_.exchange(true) && !force) {
    --updates_in_flight_;
    ZO_LOG << "[lbs]UpdateLBS updatting_lbs_ = true,return";
    return;
  }
  ZO_LOG << "[lbs]UpdateLBS set updatting = true";
  const auto config = GetEnvironmentConfig();
  UpdateRequest update{family, config == nullptr ? std::string() : config->GetBusinessToken()};
  PostTask(Weakly([update = std::move(update)](auto& self) { self.SendRequest(update); }));
}

void ZOTarvelLBSServiceImpl::SendRequest(const UpdateRequest& update) {
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) {
    ZO_LOG << "[lbs]UpdateLBS environment empty";
    updatting_lbs_ = false;
    --updates_in_flight_;
    return;
  }
  const MultipleURLHttpRequest request = MakeRequest(update, *config);
  if (request.urls.empty()) {
    ZO_LOG << "[lbs] LBS addr url list empty!";
    --updates_in_flight_;
    return;
  }
  ZO_LOG << "[lbs] Begin update LBS";
  InvokeHttpRequest(request, true);
}

MultipleURLHttpRequest ZOTarvelLBSServiceImpl::MakeRequest(const UpdateRequest& update,
                                                           const _EnvironmentConfig& config) {
  MultipleURLHttpRequest request;
  request.urls = MakeUrlEntries(update, config);
  auto& context = request.context;
  context.business = config.business_type();
  context.app_key = update.token;
  context.sdk_version = config.business_version();
  context.sdk_version_code = config.sv();
  context.protocol_version = config.pv();
  context.client_type = config.client_type();
  context.trace_id = config.GenerateTraceId();
  context.exception_category = GetExceptionCategory(kServiceCodeLBS);
  request.headers = MakeContextHeaders(context);
  request.address_family = update.family;
  request.time_out = settings.sreq_timeout_ms;
  request.multiple_time_out = settings.sreq_pred_fail_time_ms;

  const std::weak_ptr<ZOTarvelLBSServiceImpl> weak = shared_from_this<ZOTarvelLBSServiceImpl>();
  request.check_callback = [weak, update](std::int32_t index, std::int32_t code,
                                          const std::string& url, const std::string& headers,
                                          const std::string& body, std::uint64_t) {
    if (const auto living = weak.lock()) {
      return living->CheckSubResponse(update, {index, code, url, headers, body});
    }
    ZO_LOG << "[lbs] Check response strong_this == nullptr";
    MultipleURLHttpRequest::CheckCallbackResult verdict;
    verdict.stop = true;
    return verdict;
  };
  request.result_callback = [weak, update](bool stop, bool success, const std::string&,
                                           const std::string& body) {
    const auto living = weak.lock();
    if (living == nullptr) return;
    living->OnUpdateEnd(update, stop, success, body);
    --living->updates_in_flight_;
  };
  return request;
}

std::vector<UrlEntry> ZOTarvelLBSServiceImpl::MakeUrlEntries(const UpdateRequest& update,
                                                             const _EnvironmentConfig& config) {
  LBSAddresses addresses;
  addresses.urls = {response.store.Get(lbs_key::kRuntimeLBS)};
  const auto backups = response.GetBackupLBS();
  addresses.urls.insert(addresses.urls.end(), backups.begin(), backups.end());
  addresses.def_lbs_host = settings.def_lbs_host;
  addresses.family = update.family;
  addresses.only_https = config.only_https_supported();

  LBSQuery query;
  query.token = update.token;
  query.account_id = GetAccID();
  query.sv = config.sv();
  query.pv = config.pv();
  query.client_type = config.client_type();
  query.addr_family = addr_family;
  ZO_LOG << "[lbs]Make param id : " << query.account_id;
  auto entries = MakeLBSUrlEntries(addresses, query.ToText());
  if (!entries.empty()) return entries;
  // The answer that is active names nobody who can be asked. It must not be the last one.
  addresses.urls = {settings.lbs_main_addr};
  return MakeLBSUrlEntries(addresses, query.ToText());
}

std::string ZOTarvelLBSServiceImpl::GetAccID() {
  char buffer[kAccIDBufferSize] = {};
  const auto getter = acc_id_getter.Get();
  if (getter.function) getter.function(getter.user, buffer);
  std::string id = TextOf(buffer);
  ZO_LOG << "[lbs]GetAccID accid : " << id;
  return id;
}

// --- The answer ---

MultipleURLHttpRequest::CheckCallbackResult ZOTarvelLBSServiceImpl::CheckSubResponse(
    const UpdateRequest& update, const SubResponse& answer) {
  MutexLock hold(answer_lock);
  MultipleURLHttpRequest::CheckCallbackResult verdict;
  verdict.stop = detached;
  if (detached) return verdict;
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) {
    ZO_LOG << "[lbs] Check response env == nullptr";
    verdict.stop = true;
    return verdict;
  }
  const std::string token = config->GetBusinessToken();
  std::string message = "Check response current business token :";
  message.append(token).append(" request business token:").append(update.token);
  ZO_LOG << "[lbs] " << message;
  if (token != update.token) {
    verdict.stop = true;
    verdict.error_message = std::move(message);
    return verdict;
  }
  ZO_LOG << "[lbs] Check response index:" << answer.index << " code:" << answer.code;
  TellCollector(answer);
  if (answer.code == kHttpOk) {
    verdict.success = response.CheckResponse(answer.body, verdict.error_message);
    return verdict;
  }
  ZO_LOG << "[lbs] Check response res = false";
  verdict.add_statistic = true;
  verdict.error_message = "Check response code != 200";
  return verdict;
}

void ZOTarvelLBSServiceImpl::TellCollector(const SubResponse& answer) {
  const auto collector = request_error_collector.Get();
  if (collector.function == nullptr) return;
  const RequestErrorRecord record{answer.code, NullIfEmpty(answer.url), NullIfEmpty(answer.headers),
                                  NullIfEmpty(answer.body)};
  collector.function(collector.user, &record);
}

void ZOTarvelLBSServiceImpl::OnUpdateEnd(const UpdateRequest& update, bool stop, bool success,
                                         const std::string& body) {
  MutexLock hold(answer_lock);
  if (detached) return;
  if (stop) {
    ZO_LOG << "[lbs][update]Update complete [stoped] set updating false";
    updatting_lbs_ = false;
    return;
  }
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) {
    ZO_LOG << "[lbs] Update LBS complete env == nullptr";
    updatting_lbs_ = false;
    return;
  }
  const std::string token = config->GetBusinessToken();
  ZO_LOG << "[lbs] Update LBS complete current business token :" << token
         << " request business token:" << update.token;
  // The change of token has forced an update of its own, which will take the flag down.
  if (token != update.token) return;
  ZO_LOG << "[lbs] Update LBS success = " << TextOf(success);
  ZO_LOG_AT(zo_base::kLogProtocol) << "[lbs] Update LBS \r\n-----------------------\r\n"
                                   << body << "\r\n-----------------------";
  if (success) ParseLBSResponse(body, std::to_string(update.family), AnswerOrigin::kFetched);
  TellClient(success);
  updatting_lbs_ = false;
  DelayUpdate(success ? DelayAfterSuccess() : kDelayAfterFailure);
  ZO_LOG << "[lbs]UpdateLBS set updatting = false";
}

void ZOTarvelLBSServiceImpl::TellClient(bool success) {
  if (lbs_callback.Get().function == nullptr) return;
  ZO_LOG << "[lbs] Update LBS compare post task to lbs thread for callback";
  PostTask(Weakly([success](auto& self) {
    ZO_LOG << "[lbs] Update LBS compare callback sdk";
    const std::string text = self.response.store.Get(lbs_key::kRsp);
    // Read now: the client may have replaced it since, and freed what it worked on.
    const auto callback = self.lbs_callback.Get();
    if (callback.function) callback.function(success ? kHttpOk : 0, text.c_str(), callback.user);
  }));
}

// On a thread of the library this would wait for itself, or for one that waits for it; in the
// client's log function, for one that waits for a lock held here. And nobody waits for what can't
// come any more.
void ZOTarvelLBSServiceImpl::AwaitUpdate() {
  if (zo_base::OnLibraryThread() || zo_base::InLogFunction()) return;
  const auto may_end = [this] {
    return updates_in_flight_ > 0 && IsRunning() && !IsStopping() && GetEnvironmentConfig();
  };
  while (updatting_lbs_ && may_end()) std::this_thread::sleep_for(kUpdatePoll);
}

}  // namespace zo_tarvel
