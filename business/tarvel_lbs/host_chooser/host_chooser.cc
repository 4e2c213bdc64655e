#include "business/tarvel_lbs/host_chooser/host_chooser.h"

#include <algorithm>

#include "base/log/log.h"
#include "business/tarvel_lbs/link_address.h"

namespace zo_tarvel {
namespace {

using zo_base::MutexLock;

// A list is logged at every question. Its length is the server's choice, so only so many addresses
// are shown: what one question costs doesn't depend on that choice.
constexpr std::size_t kMostLoggedHosts = 100;

bool IsOneFamily(std::int32_t family) {
  return family == kEMAddressFamilyIPv4 || family == kEMAddressFamilyIPv6;
}

// Names suit every family.
bool Suits(const std::string& address, std::int32_t family) {
  const std::int32_t own = FamilyOfLinkAddress(address);
  return own == kEMAddressFamilyAny || own == family;
}

}  // namespace

bool HostChooser::GetHost(std::int32_t family, std::string& out) {
  LogHosts("GetHost Hosts");
  MutexLock hold(lock);
  if (TakeNextOf(family, out)) return false;
  out = DefaultOf(family);
  current_index = 0;
  return true;
}

bool HostChooser::TakeNextOf(std::int32_t family, std::string& out) {
  while (current_index < hosts.size()) {
    const std::string& host = hosts[current_index++];
    if (IsOneFamily(family) && !Suits(host, family)) continue;
    out = host;
    return true;
  }
  return false;
}

const std::string& HostChooser::DefaultOf(std::int32_t family) const {
  if (family == kEMAddressFamilyIPv4) return default_host;
  if (family == kEMAddressFamilyIPv6) return default_host_ipv6;
  // A name works on every network, a literal on one kind only.
  const bool only_ipv6_is_name = FamilyOfLinkAddress(default_host) != kEMAddressFamilyAny &&
                                 FamilyOfLinkAddress(default_host_ipv6) == kEMAddressFamilyAny;
  return only_ipv6_is_name ? default_host_ipv6 : default_host;
}

std::string HostChooser::GetCurrentHost() const {
  MutexLock hold(lock);
  return current_index < hosts.size() ? hosts[current_index] : std::string();
}

std::int32_t HostChooser::GetHostCount() const {
  MutexLock hold(lock);
  return static_cast<std::int32_t>(hosts.size());
}

void HostChooser::SetDefaultHost(std::int32_t family, const std::string& host) {
  MutexLock hold(lock);
  if (family == kEMAddressFamilyAny || family == kEMAddressFamilyIPv4) default_host = host;
  if (family == kEMAddressFamilyAny || family == kEMAddressFamilyIPv6) default_host_ipv6 = host;
}

void HostChooser::ResetHosts(const std::vector<std::string>& list) {
  {
    MutexLock hold(lock);
    hosts = list;
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
    for (std::size_t i = 0; i < shown; ++i) list.append(hosts[i]).append("\r\n");
    if (shown < size) list += "...\r\n";
  }
  ZO_LOG << operation << " size:" << size << " current index :" << index << "\r\n"
         << list << "----------------------------------";
}

}  // namespace zo_tarvel
