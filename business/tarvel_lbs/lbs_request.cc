#include "business/tarvel_lbs/lbs_request.h"

#include <optional>
#include <utility>

#include "base/text/strings.h"
#include "network/curl/web_address.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

namespace network = WQBASE::network;

// How the server numbers the families.
std::int32_t NetworkType(std::int32_t family) {
  if (family == kEMAddressFamilyIPv4) return 0;
  return family == kEMAddressFamilyIPv6 ? 1 : 2;
}

bool IsWebUrl(const std::string& url) {
  const std::string prefix = network::GetSchemePrefix(url);
  return prefix == "http://" || prefix == "https://";
}

bool HasPort(const std::string& url) {
  return network::GetHost(url, true) != network::GetHost(url, false);
}

// Whether the transport takes the URL at all.
bool CanBeFetched(const std::string& url) {
  std::string error;
  return network::ParseWebAddress(url, error).has_value();
}

std::string FallbackHost(const LBSAddresses& addresses) {
  const std::string first = addresses.urls.empty() ? std::string() : addresses.urls.front();
  const std::string host = network::GetHost(first, false);
  const bool is_name = CanBeFetched(first) && !network::IsIPAddress(host);
  return is_name ? host : addresses.def_lbs_host;
}

bool IsOfOtherFamily(const std::string& host, std::int32_t family) {
  auto own = zo_net::kAddressFamilyAny;
  return family != kEMAddressFamilyAny && network::GetIPFamily(host, own) && own != family;
}

// Nothing when the URL can't be asked over https.
std::optional<std::string> AsHttps(const std::string& url) {
  if (network::IsHttps(url)) return url;
  if (HasPort(url)) return std::nullopt;
  std::string https = zo_base::ReplaceAll(url, "http://", "https://");
  if (!network::IsHttps(https)) return std::nullopt;  // The scheme is written in capitals.
  return https;
}

std::string WithQuery(const std::string& url, const std::string& query) {
  const char* const joint = url.find('?') == std::string::npos ? "?" : "&";
  return url + joint + query;
}

}  // namespace

std::string LBSQuery::ToText() const {
  std::string text;
  if (!token.empty()) text.append("k=").append(network::UrlEncode(token)).append("&");
  if (!account_id.empty()) text.append("id=").append(network::UrlEncode(account_id)).append("&");
  text.append("sv=").append(std::to_string(sv));
  text.append("&pv=").append(std::to_string(pv));
  text.append("&tp=").append(std::to_string(client_type));
  return text.append("&networkType=").append(std::to_string(NetworkType(addr_family)));
}

std::vector<UrlEntry> MakeLBSUrlEntries(const LBSAddresses& addresses, const std::string& query) {
  const std::string fallback_host = FallbackHost(addresses);
  std::vector<UrlEntry> entries;
  for (const std::string& address : addresses.urls) {
    if (!IsWebUrl(address)) continue;
    const std::string host = network::GetHost(address, false);
    if (IsOfOtherFamily(host, addresses.family)) continue;
    const auto url = addresses.only_https ? AsHttps(address) : address;
    if (!url) continue;
    std::string whole = WithQuery(*url, query);
    if (!CanBeFetched(whole)) continue;
    entries.push_back({network::IsIPAddress(host) ? fallback_host : host, std::move(whole)});
  }
  return entries;
}

}  // namespace zo_tarvel
