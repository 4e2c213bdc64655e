#include "business/tarvel_lbs/link_address.h"

#include <cstddef>

#include "network/ip_address.h"
#include "network/url.h"

namespace zo_tarvel {
namespace {

namespace network = WQBASE::network;

constexpr std::int32_t kHighestPort = 65'535;

std::string UrlOf(const std::string& text) { return "http://" + text; }

std::string HostOf(const std::string& text) { return network::GetHost(UrlOf(text), false); }

EMAddressFamily FamilyOfHost(const std::string& host) {
  auto family = zo_net::kAddressFamilyAny;
  network::GetIPFamily(host, family);
  return static_cast<EMAddressFamily>(family);
}

}  // namespace

LinkAddress SplitLinkAddress(const std::string& text) {
  LinkAddress address;
  std::int32_t port = 0;
  network::GetHostAndPort(UrlOf(text), address.host, port);
  if (port > 0 && port <= kHighestPort) address.port = port;
  address.family = FamilyOfHost(address.host);
  return address;
}

EMAddressFamily FamilyOfLinkAddress(const std::string& text) { return FamilyOfHost(HostOf(text)); }

bool CanBeLinkAddress(const std::string& text) {
  constexpr std::size_t kLongestPort = 6;  // With its colon.
  if (text.size() >= kLinkAddressBufferSize + kLongestPort) return false;
  const std::string host = HostOf(text);
  return !host.empty() && host.size() < kLinkAddressBufferSize;
}

}  // namespace zo_tarvel
