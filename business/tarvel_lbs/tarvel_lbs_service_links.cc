// Link addresses for the client.

#include <algorithm>

#include "base/log/log.h"
#include "base/text/text_of.h"
#include "business/tarvel_lbs/link_address.h"
#include "business/tarvel_lbs/tarvel_lbs_service.h"

namespace zo_tarvel {
namespace {

using zo_base::LibraryCall;
using zo_base::MutexLock;
using zo_base::TextOf;

// Whatever the client has no use for may be null.
void HandOut(const LinkAddress& address, char* addr, std::int32_t* port, EMAddressFamily* family) {
  if (addr != nullptr) std::copy(address.host.begin(), address.host.end(), addr);
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

std::shared_ptr<HostChooser> ZOTarvelLBSServiceImpl::LinkChooser() const {
  MutexLock hold(lock);
  const auto chooser = link_hosts.find(kLinkChooser);
  return chooser == link_hosts.end() ? nullptr : chooser->second;
}

bool ZOTarvelLBSServiceImpl::GetLinkAddress(char* addr, std::int32_t* port,
                                            EMAddressFamily* family) {
  const LibraryCall call;
  if (!IsInitd("get link address")) return false;
  const std::int32_t wish = family == nullptr ? kEMAddressFamilyAny : *family;
  ZO_LOG << "[lbs] Get link address addr_family = " << wish;
  LinkAddress address;
  const auto chooser = LinkChooser();
  const bool use_default = chooser == nullptr || chooser->GetHost(wish, address);
  ZO_LOG << "[lbs] Get link address " << address.text << " use default:" << TextOf(use_default);
  HandOut(address, addr, port, family);
  LogAddress(address, addr != nullptr);
  if (use_default) {
    ZO_LOG << "[lbs] Use default link addr,need update lbs ";
    RequestUpdate(true, AddressFamily(), false);
  }
  return true;
}

bool ZOTarvelLBSServiceImpl::GetCurrentLinkAddress(char* addr, std::int32_t* port,
                                                   EMAddressFamily* family) {
  const LibraryCall call;
  if (!IsInitd("get current link address")) return false;
  const auto chooser = LinkChooser();
  const LinkAddress address = chooser == nullptr ? LinkAddress() : chooser->GetCurrentAddress();
  if (address.text.empty()) return false;
  HandOut(address, addr, port, family);
  return true;
}

void ZOTarvelLBSServiceImpl::OnCurrentLinkConnectSucceed(const char* host, std::int32_t port) {
  const LibraryCall call;
  if (!IsInitd("OnCurrentLinkConnectSucceed")) return;
  const auto chooser = LinkChooser();
  if (chooser) chooser->OnHostConnectSucceed(host == nullptr ? "" : host, port);
}

std::int32_t ZOTarvelLBSServiceImpl::GetLinkCount() {
  const LibraryCall call;
  if (!IsInitd("GetLinkCount")) return -1;
  const auto chooser = LinkChooser();
  return chooser == nullptr ? 0 : chooser->GetHostCount();
}

}  // namespace zo_tarvel
