#include "tarvel/http_agent/logic/second_try.h"

#include <map>
#include <set>
#include <string_view>

namespace zo_tarvel {

using WQBASE::network::Url;

std::vector<std::string> NamedHostsOf(const MultipleURLHttpRequest& request) {
  std::vector<std::string> hosts;
  std::set<std::string_view> seen;  // A server may send a list of any length.
  for (const auto& [name, url] : request.urls) {
    if (!url.is_on_ip() && seen.insert(url.host()).second) hosts.emplace_back(url.host());
  }
  return hosts;
}

MultipleURLHttpRequest OnAddresses(MultipleURLHttpRequest request,
                                   const HostCacheResult& addresses) {
  std::map<std::string, std::vector<Url>> urls;  // Of each name.
  std::set<std::string_view> seen;
  for (const auto& [name, url] : request.urls) {
    if (!url.is_on_ip() && seen.insert(url.text()).second) {
      urls[std::string(url.host())].push_back(url);
    }
  }
  request.urls.clear();
  request.use_http_dns_if_fail = false;
  for (const auto& [host, ips] : addresses) {
    for (const std::string& ip : ips) {
      for (const Url& url : urls[host]) request.urls.push_back({host, url.WithHost(ip)});
    }
  }
  return request;
}

}  // namespace zo_tarvel
