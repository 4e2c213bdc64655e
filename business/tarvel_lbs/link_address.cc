#include "business/tarvel_lbs/link_address.h"

#include <cstddef>

#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace zo_tarvel {

namespace network = WQBASE::network;

LinkAddress SplitLinkAddress(const std::string& text) {
  LinkAddress address{.text = text, .host = {}};
  std::int32_t port = 0;
  network::GetHostAndPort("http://" + text, address.host, port);
  if (port > 0 && port <= network::kHighestPort) address.port = port;
  auto family = zo_net::kAddressFamilyAny;
  network::GetIPFamily(address.host, family);
  address.family = static_cast<EMAddressFamily>(family);
  return address;
}

bool IsUsable(const LinkAddress& address) {
  constexpr std::size_t kLongestPort = 6;  // With its colon.
  return address.text.size() < kLinkAddressBufferSize + kLongestPort && !address.host.empty() &&
         address.host.size() < kLinkAddressBufferSize;
}

}  // namespace zo_tarvel
