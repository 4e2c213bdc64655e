#include "business/tarvel_lbs/host_chooser/host_chooser.h"

#include <algorithm>
#include <utility>

#include "base/log/log.h"

namespace zo_tarvel {
namespace {

using zo_base::MutexLock;

// Each call of GetHost logs the list. The server chooses its length, so only this many addresses
// are shown: the cost of a call must not depend on the server.
constexpr std::size_t kMostLoggedHosts = 100;

bool Suits(const LinkAddress& address, std::int32_t family) {
  const bool one_family = family == kEMAddressFamilyIPv4 || family == kEMAddressFamilyIPv6;
  return !one_family || address.family == kEMAddressFamilyAny || address.family == family;
}

}  // namespace

bool HostChooser::GetHost(std::int32_t family, LinkAddress& out) {
  LogHosts("GetHost Hosts");
  MutexLock hold(lock);
  if (TakeNextOf(family, out)) return false;
  out = DefaultOf(family);
  current_index = 0;
  return true;
}

bool HostChooser::GetHost(std::int32_t family, std::string& out) {
  LinkAddress address;
  const bool use_default = GetHost(family, address);
  out = std::move(address.text);
  return use_default;
}

bool HostChooser::TakeNextOf(std::int32_t family, LinkAddress& out) {
  while (current_index < hosts.size()) {
    const LinkAddress& host = hosts[current_index++];
    if (!Suits(host, family)) continue;
    out = host;
    return true;
  }
  return false;
}

const LinkAddress& HostChooser::DefaultOf(std::int32_t family) const {
  if (family == kEMAddressFamilyIPv4) return default_host;
  if (family == kEMAddressFamilyIPv6) return default_host_ipv6;
  // A name works on every network, a literal on one kind only.
  const bool only_ipv6_is_name =
      default_host.family != kEMAddressFamilyAny && default_host_ipv6.family == kEMAddressFamilyAny;
  return only_ipv6_is_name ? default_host_ipv6 : default_host;
}

LinkAddress HostChooser::GetCurrentAddress() const {
  MutexLock hold(lock);
  return current_index < hosts.size() ? hosts[current_index] : LinkAddress();
}

std::int32_t HostChooser::GetHostCount() const {
  MutexLock hold(lock);
  return static_cast<std::int32_t>(hosts.size());
}

void HostChooser::SetDefaultHost(std::int32_t family, const std::string& host) {
  const LinkAddress address = SplitLinkAddress(host);
  MutexLock hold(lock);
  if (family == kEMAddressFamilyAny || family == kEMAddressFamilyIPv4) default_host = address;
  if (family == kEMAddressFamilyAny || family == kEMAddressFamilyIPv6) default_host_ipv6 = address;
}

void HostChooser::ResetHosts(std::vector<LinkAddress> list) {
  {
    MutexLock hold(lock);
    hosts.swap(list);
    current_index = 0;
  }
  LogHosts("Reset Hosts");
}

void HostChooser::OnHostConnectSucceed(const std::string&, std::int32_t) { MutexLock hold(lock); }

void HostChooser::LogHosts(const char* operation) const {
  if (zo_base::GetLogWriterFor(zo_base::kLogApp) == nullptr) return;
  std::size_t size = 0, index = 0;
  std::string list;
  {
    MutexLock hold(lock);
    size = hosts.size();
    index = current_index;
    const std::size_t shown = std::min(size, kMostLoggedHosts);
    for (std::size_t i = 0; i < shown; ++i) list.append(hosts[i].text).append("\r\n");
    if (shown < size) list += "...\r\n";
  }
  ZO_LOG << operation << " size:" << size << " current index :" << index << "\r\n"
         << list << "----------------------------------";
}

}  // namespace zo_tarvel
