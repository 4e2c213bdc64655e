#include "business/tarvel_lbs/tarvel_lbs_service.h"

#include <algorithm>
#include <string_view>
#include <system_error>

#include "base/log/log.h"
#include "base/process/forked_child.h"
#include "base/thread/thread_info.h"

namespace zo_tarvel {
namespace {

using zo_base::InForkedChild;
using zo_base::LibraryCall;
using zo_base::MutexLock;

constexpr std::string_view kNotInited = "inited=false";

// The service's requests for an update are gathered: this many, or for so many milliseconds.
constexpr std::int32_t kGatheredUpdates = 3;
constexpr std::int32_t kGatheringTime = 1'200;

// The caller's buffer is zeroed, and as long as the interface says.
void CopyOut(std::string_view text, char* out) {
  if (out != nullptr) std::copy(text.begin(), text.end(), out);
}

}  // namespace

ZOTarvelLBSServiceImpl::ZOTarvelLBSServiceImpl(zo_base::WallClock wall_clock)
    : TaskThread("lbs service"), wall_clock(wall_clock), delay_timer(GetTaskLoop()) {}

ZOTarvelLBSServiceImpl::~ZOTarvelLBSServiceImpl() {
  for (auto& connection : connections) connection.disconnect();
}

bool ZOTarvelLBSServiceImpl::Init(const _ZOTarvelLBSSettings& record) {
  const LibraryCall call;
  if (IsPutOff([record](auto& self) { self.Init(record); })) return true;
  MutexLock hold(init_lock);
  if (initd) {
    EnsureThread();
    return true;
  }
  PrepInit(record);
  Connect<>(zo_base::SIG_ThreadBegin, Weakly([](auto& self) { self.OnOwnThreadBegin(); }));
  // Before the thread begins: its first update comes to nothing as long as this isn't set.
  initd = true;
  EnsureThread();
  return true;
}

// The service is there without its thread too, and each update asks for that again.
void ZOTarvelLBSServiceImpl::EnsureThread() {
  const std::string failure = StartIfPossible();
  if (!failure.empty()) ZO_LOG << "lbs service thread failed:" << failure;
}

void ZOTarvelLBSServiceImpl::PrepInit(const _ZOTarvelLBSSettings& record) {
  const auto config = GetEnvironmentConfig();
  if (config) {
    config->SetAddressFamily(static_cast<zo_net::AddressFamily>(record.addr_family), false);
    ConnectToConfig(*config);
  }
  settings.Assign(record, config.get());
  addr_family = settings.addr_family;
  ZO_LOG << "[lbs] lbs config:\r\n" << settings.Dump();
  response.SetEnvironmentConfig(config);
  response.Init(settings);
  ParseLBSResponse(response.store.Get(lbs_key::kRsp), response.GetIPVersion(), AnswerOrigin::kKept);
}

void ZOTarvelLBSServiceImpl::ConnectToConfig(_EnvironmentConfig& config) {
  const std::weak_ptr<ZOTarvelLBSServiceImpl> weak = shared_from_this<ZOTarvelLBSServiceImpl>();
  connections = {
      config.Connect<zo_net::AddressFamily>(SIG_NetworkChanged,
                                            [weak](zo_net::AddressFamily family) {
                                              if (const auto living = weak.lock())
                                                living->OnNetworkChanged(family);
                                            }),
      config.Connect<const std::string>(SIG_BusinessTokenChanged, [weak](const std::string&) {
        if (const auto living = weak.lock()) living->OnBusinessTokenChanged();
      })};
}

void ZOTarvelLBSServiceImpl::OnOwnThreadBegin() {
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) return;
  {
    MutexLock hold(values_lock);
    if (count_invoker == nullptr) {
      count_invoker = CountTimerInvoker::Create(kGatheredUpdates, kGatheringTime,
                                                shared_from_this<zo_base::TaskThread>());
    }
  }
  if (config->GetBusinessToken().empty()) return;
  PostTask(Weakly([](auto& self) { self.DelayUpdate(0); }));
}

std::shared_ptr<CountTimerInvoker> ZOTarvelLBSServiceImpl::Invoker() {
  MutexLock hold(values_lock);
  return count_invoker;
}

void ZOTarvelLBSServiceImpl::Stop() {
  if (const auto invoker = Invoker()) invoker->Stop();
  TaskThread::Stop();
  detached = true;
  // A thread of the library may be the one that looks at an answer, or may be waited for by it.
  if (!zo_base::OnLibraryThread()) AwaitAnswerUnderWay();
}

void ZOTarvelLBSServiceImpl::AwaitAnswerUnderWay() {
  if (InForkedChild()) return;  // It isn't under way here.
  MutexLock hold(answer_lock);
}

void ZOTarvelLBSServiceImpl::SetLBSCallback(LBSCallback callback, void* user) {
  if (InForkedChild()) return;
  lbs_callback.Set(callback, user);
}

void ZOTarvelLBSServiceImpl::SetAccIDGetter(AccIDGetter getter, void* user) {
  const LibraryCall call;
  if (InForkedChild()) return;
  acc_id_getter.Set(getter, user);
  ZO_LOG << "[lbs]SetAccIDGetter";
}

void ZOTarvelLBSServiceImpl::SetRequestErrorCollector(RequestErrorCollector collector, void* user) {
  const LibraryCall call;
  if (InForkedChild()) return;
  request_error_collector.Set(collector, user);
  ZO_LOG << "[lbs]SetRequestErrorCollector";
}

// False in a dead forked child too, where the locks of the operations may be held for good.
bool ZOTarvelLBSServiceImpl::IsInitd(const char* operation) const {
  if (InForkedChild()) return false;
  if (!initd) ZO_LOG << "[lbs] Call " << operation << " but initd = false";
  return initd;
}

void ZOTarvelLBSServiceImpl::CopyText(const char* operation, const char* key, char* out) const {
  const LibraryCall call;
  if (!IsInitd(operation)) {
    CopyOut(kNotInited, out);
    return;
  }
  if (out == nullptr) return;
  const std::string text = response.store.Get(key);
  if (FitsLBSTextBuffer(text)) CopyOut(text, out);
}

void ZOTarvelLBSServiceImpl::GetZEBDL(char* out) { CopyText("GetZEBDL", lbs_key::kZebDl, out); }

void ZOTarvelLBSServiceImpl::GetZEBDLList(char* out) {
  CopyText("GetZEBDLList", lbs_key::kZebDlList, out);
}

void ZOTarvelLBSServiceImpl::GetZEBList(char* out) {
  CopyText("GetZEBList", lbs_key::kZebList, out);
}

void ZOTarvelLBSServiceImpl::GetName(char* out) { CopyText("GetName", lbs_key::kName, out); }

void ZOTarvelLBSServiceImpl::GetDesc(char* out) { CopyText("GetDesc", lbs_key::kDesc, out); }

void ZOTarvelLBSServiceImpl::GetLBSResponse(bool no_wait, char* out) {
  const LibraryCall call;
  // An exit during the wait lets go of this object.
  const auto self = shared_from_this<ZOTarvelLBSServiceImpl>();
  if (initd && out != nullptr && !no_wait && !InForkedChild()) AwaitUpdate();
  CopyText("get lbs response", lbs_key::kRsp, out);
}

void ZOTarvelLBSServiceImpl::GetMsgStatInfo(_ZOTarvelMsgStatInfo* info) {
  if (info == nullptr || InForkedChild()) return;
  MutexLock hold(values_lock);
  msg_stat_info.FillRecord(*info);
}

}  // namespace zo_tarvel
