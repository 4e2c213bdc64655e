#include "business/tarvel_lbs/tarvel_lbs_service.h"

#include <algorithm>
#include <string_view>

#include "base/log/log.h"
#include "base/object/weakly.h"
#include "base/process/forked_child.h"
#include "base/text/strings.h"
#include "base/thread/library_call.h"
#include "base/thread/thread_info.h"
#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {
namespace {

using zo_base::InForkedChild;
using zo_base::IsPutOff;
using zo_base::LibraryCall;
using zo_base::TrueOrFalse;
using zo_base::Weakly;

// The caller's buffer is zeroed, and as long as the interface says.
void CopyOut(std::string_view text, char* out) {
  if (out != nullptr) std::copy(text.begin(), text.end(), out);
}

// Any of the pointers may be null.
void HandOut(const LinkAddress& address, char* addr, std::int32_t* port, EMAddressFamily* family) {
  CopyOut(address.host, addr);
  if (port != nullptr) *port = address.port;
  if (family != nullptr) *family = address.family;
}

const char* KindOf(EMAddressFamily family) {
  if (family == kEMAddressFamilyIPv6) return "[lbs] Addr may be ipv6 ";
  return family == kEMAddressFamilyIPv4 ? "[lbs] Addr may be ipv4 " : "[lbs] Addr may be domain ";
}

void LogAddress(const LinkAddress& address, bool has_buffer) {
  const char* const shown = address.host.empty() ? "empty string !" : address.host.c_str();
  ZO_LOG << KindOf(address.family) << (has_buffer ? shown : "null ptr !") << ":" << address.port;
}

}  // namespace

ZOTarvelLBSServiceImpl::ZOTarvelLBSServiceImpl(zo_base::WallClock wall_clock)
    : TaskThread("lbs service"), answer(settings, wall_clock), updater(*this, settings, answer) {}

bool ZOTarvelLBSServiceImpl::Init(const _ZOTarvelLBSSettings& record) {
  const LibraryCall call;
  if (IsPutOff(*this, [record](auto& self) { self.Init(record); })) return true;
  zo_base::MutexLock hold(init_lock);
  if (!updater.initd()) {
    PrepInit(record);
    Connect<>(zo_base::SIG_ThreadBegin,
              Weakly(this, [](auto& self) { self.updater.OnThreadBegin(); }));
    updater.SetInitd();
  }
  updater.EnsureThread();
  return true;
}

void ZOTarvelLBSServiceImpl::PrepInit(const _ZOTarvelLBSSettings& record) {
  const auto config = GetEnvironmentConfig();
  if (config) {
    config->SetAddressFamily(static_cast<zo_net::AddressFamily>(record.addr_family), false);
  }
  updater.Connect(config);
  settings.Assign(record, config.get());
  ZO_LOG << "[lbs] lbs config:\r\n" << settings.Dump();
  answer.Init(config);
}

void ZOTarvelLBSServiceImpl::Stop() {
  updater.StopGathering();
  TaskThread::Stop();
  updater.Detach();
  // A thread of the library may be the one that looks at an answer, or may be waited for by it.
  if (!zo_base::OnLibraryThread()) updater.AwaitAnswerUnderWay();
}

void ZOTarvelLBSServiceImpl::Update(EMAddressFamily family, bool force) {
  const LibraryCall call;
  if (IsPutOff(*this, [family, force](auto& self) { self.Update(family, force); })) return;
  if (IsInitd("Update")) updater.Update(static_cast<zo_net::AddressFamily>(family), force);
}

void ZOTarvelLBSServiceImpl::SetLBSCallback(LBSCallback callback, void* user) {
  if (!InForkedChild()) updater.lbs_callback.Set(callback, user);
}

void ZOTarvelLBSServiceImpl::SetAccIDGetter(AccIDGetter getter, void* user) {
  const LibraryCall call;
  if (InForkedChild()) return;
  updater.acc_id_getter.Set(getter, user);
  ZO_LOG << "[lbs]SetAccIDGetter";
}

void ZOTarvelLBSServiceImpl::SetRequestErrorCollector(RequestErrorCollector collector, void* user) {
  const LibraryCall call;
  if (InForkedChild()) return;
  updater.request_error_collector.Set(collector, user);
  ZO_LOG << "[lbs]SetRequestErrorCollector";
}

// Returns false in a dead forked child too, where the locks of the operations may be held for good.
bool ZOTarvelLBSServiceImpl::IsInitd(const char* operation) const {
  if (InForkedChild()) return false;
  const bool initd = updater.initd();
  if (!initd) ZO_LOG << "[lbs] Call " << operation << " but initd = false";
  return initd;
}

void ZOTarvelLBSServiceImpl::CopyText(const char* operation, const char* key, char* out) const {
  const LibraryCall call;
  if (!IsInitd(operation)) {
    CopyOut("inited=false", out);
  } else if (out != nullptr) {
    const std::string text = answer.Text(key);
    if (FitsLBSTextBuffer(text)) CopyOut(text, out);
  }
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
  // An exit during the wait releases this object.
  const auto self = shared_from_this<ZOTarvelLBSServiceImpl>();
  if (!no_wait && out != nullptr && !InForkedChild()) updater.AwaitUpdate();
  CopyText("get lbs response", lbs_key::kRsp, out);
}

bool ZOTarvelLBSServiceImpl::GetLinkAddress(char* addr, std::int32_t* port,
                                            EMAddressFamily* family) {
  const LibraryCall call;
  if (!IsInitd("get link address")) return false;
  const std::int32_t wish = family == nullptr ? kEMAddressFamilyAny : *family;
  ZO_LOG << "[lbs] Get link address addr_family = " << wish;
  LinkAddress address;
  const bool use_default = answer.LinkChooser()->GetHost(wish, address);
  ZO_LOG << "[lbs] Get link address " << address.text
         << " use default:" << TrueOrFalse(use_default);
  HandOut(address, addr, port, family);
  LogAddress(address, addr != nullptr);
  if (use_default) {
    ZO_LOG << "[lbs] Use default link addr,need update lbs ";
    updater.OnLinksUsedUp();
  }
  return true;
}

bool ZOTarvelLBSServiceImpl::GetCurrentLinkAddress(char* addr, std::int32_t* port,
                                                   EMAddressFamily* family) {
  const LibraryCall call;
  if (!IsInitd("get current link address")) return false;
  const LinkAddress address = answer.LinkChooser()->GetCurrentAddress();
  if (address.text.empty()) return false;
  HandOut(address, addr, port, family);
  return true;
}

void ZOTarvelLBSServiceImpl::OnCurrentLinkConnectSucceed(const char* host, std::int32_t port) {
  const LibraryCall call;
  if (!IsInitd("OnCurrentLinkConnectSucceed")) return;
  answer.LinkChooser()->OnHostConnectSucceed(host == nullptr ? "" : host, port);
}

std::int32_t ZOTarvelLBSServiceImpl::GetLinkCount() {
  const LibraryCall call;
  return IsInitd("GetLinkCount") ? answer.LinkChooser()->GetHostCount() : -1;
}

void ZOTarvelLBSServiceImpl::GetMsgStatInfo(_ZOTarvelMsgStatInfo* info) {
  if (info != nullptr && !InForkedChild()) answer.FillMsgStatInfo(*info);
}

namespace {

// Tells the objects of the environment how to make the service, while the library is loaded.
[[maybe_unused]] const bool registered = [] {
  SetLBSServiceFactory([]() -> std::shared_ptr<IZOTarvelLBSService> {
    return std::make_shared<ZOTarvelLBSServiceImpl>();
  });
  return true;
}();

}  // namespace
}  // namespace zo_tarvel
