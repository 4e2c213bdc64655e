#include "business/tarvel_lbs/link_address.h"

#include <cstddef>
#include <string_view>

#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::kHighestPort;

namespace network = WQBASE::network;

std::string UrlOf(const std::string& text) { return "http://" + text; }

EMAddressFamily FamilyOfHost(std::string_view host) {
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

EMAddressFamily FamilyOfLinkAddress(const std::string& text) {
  const std::string url = UrlOf(text);
  return FamilyOfHost(network::HostIn(url));
}

bool CanBeLinkAddress(const std::string& text) {
  constexpr std::size_t kLongestPort = 6;  // With its colon.
  if (text.size() >= kLinkAddressBufferSize + kLongestPort) return false;
  const std::string url = UrlOf(text);
  const std::string_view host = network::HostIn(url);
  return !host.empty() && host.size() < kLinkAddressBufferSize;
}

}  // namespace zo_tarvel
