#include "tarvel/http_agent/logic/second_try.h"

#include <map>
#include <set>
#include <string_view>

#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

struct NamedUrls {
  std::vector<std::string> hosts;
  std::map<std::string, std::vector<std::string>> urls;  // Of each host.
};

NamedUrls NamedUrlsOf(const MultipleURLHttpRequest& request) {
  NamedUrls named;
  std::set<std::string> seen;  // A server may send a list of any length.
  for (const auto& entry : request.urls) {
    const std::string host = WQBASE::network::GetHost(entry.url, false);
    if (WQBASE::network::IsIPAddress(host) || !seen.insert(entry.url).second) continue;
    auto& urls = named.urls[host];
    if (urls.empty()) named.hosts.push_back(host);
    urls.push_back(entry.url);
  }
  return named;
}

std::string UrlOnAddress(const std::string& url, const std::string& address) {
  const std::string_view host = WQBASE::network::HostIn(url);
  if (host.empty()) return url;
  const auto at = static_cast<std::size_t>(host.data() - url.data());
  return std::string(url).replace(at, host.size(), address);
}

}  // namespace

std::vector<std::string> NamedHostsOf(const MultipleURLHttpRequest& request) {
  return NamedUrlsOf(request).hosts;
}

MultipleURLHttpRequest OnAddresses(const MultipleURLHttpRequest& request,
                                   const HostCacheResult& addresses) {
  MultipleURLHttpRequest result = request;
  result.urls.clear();
  result.use_http_dns_if_fail = false;
  NamedUrls named = NamedUrlsOf(request);
  for (const auto& [host, ips] : addresses) {
    for (const std::string& ip : ips) {
      for (const auto& url : named.urls[host]) {
        result.urls.push_back({host, UrlOnAddress(url, ip)});
      }
    }
  }
  return result;
}

}  // namespace zo_tarvel
