#include "business/tarvel_lbs/link_address.h"

#include <cstddef>

#include "base/text/strings.h"
#include "network/url/url.h"

namespace zo_tarvel {

namespace network = WQBASE::network;

LinkAddress SplitLinkAddress(const std::string& text) {
  LinkAddress address{.text = text, .host = {}};
  const network::Url url("http://" + text);
  address.host = url.host();
  if (url.port() > 0 && url.port() <= network::kHighestPort) address.port = url.port();
  address.family = static_cast<EMAddressFamily>(url.family());
  return address;
}

bool IsUsable(const LinkAddress& address) {
  constexpr std::size_t kLongestPort = 6;  // With its colon.
  return address.text.size() < kLinkAddressBufferSize + kLongestPort &&
         zo_base::IsOneWord(address.text) && !address.host.empty() &&
         address.host.size() < kLinkAddressBufferSize;
}

}  // namespace zo_tarvel
