#include "tarvel/http_agent/http_dns/httpdns_server_list.h"

#include <algorithm>
#include <cstddef>

#include "network/url/host_rules.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::CanBeHost;
using WQBASE::network::InBrackets;
using WQBASE::network::kHighestPort;
using zo_base::MutexLock;
using zo_base::json11::Json;

constexpr std::int32_t kHttpPort = 80;
constexpr std::int32_t kHttpsPort = 443;
// Each may have to time out before the next one is asked.
constexpr std::size_t kMostServers = 32;

bool CanBeInUrl(const HttpDNSServerInfo& server) {
  return CanBeHost(server.host) && server.port >= 0 && server.port <= kHighestPort;
}

HttpDNSServerInfo ReadServer(const Json& entry) {
  HttpDNSServerInfo server;
  server.host = entry["host"].string_value();
  if (server.host.find(':') != std::string::npos) server.host = InBrackets(server.host);
  server.port = entry["port"].int_value();
  server.https = entry.object_items().count("https") == 0 || entry["https"].bool_value();
  return server;
}

}  // namespace

std::vector<HttpDNSServerInfo> ReadServers(const Json& list, bool only_https) {
  std::vector<HttpDNSServerInfo> servers;
  for (const Json& entry : list.array_items()) {
    if (servers.size() == kMostServers) break;
    HttpDNSServerInfo server = ReadServer(entry);
    const bool can_be_used = CanBeInUrl(server) && (server.https || !only_https);
    if (can_be_used) servers.push_back(std::move(server));
  }
  return servers;
}

std::string AuthorityOf(const HttpDNSServerInfo& server) {
  if (!WQBASE::network::IsIPAddress(server.host)) return server.host;
  const std::int32_t scheme_port = server.https ? kHttpsPort : kHttpPort;
  return server.host + ":" + std::to_string(server.port == 0 ? scheme_port : server.port);
}

void HttpDNSServerList::SetServers(const std::string& host,
                                   const std::vector<HttpDNSServerInfo>& ipv4,
                                   const std::vector<HttpDNSServerInfo>& ipv6) {
  MutexLock hold(lock_);
  host_ = host;
  if (!ipv4.empty()) ipv4_ = ipv4;
  if (!ipv6.empty()) ipv6_ = ipv6;
}

std::vector<HttpDNSServerInfo> HttpDNSServerList::GetServers(zo_net::AddressFamily family,
                                                             bool only_https) const {
  const auto usable = [only_https](std::vector<HttpDNSServerInfo> list) {
    std::erase_if(list, [&](const auto& server) { return only_https && !server.https; });
    return list;
  };
  MutexLock hold(lock_);
  const auto ipv4 = usable(ipv4_), ipv6 = usable(ipv6_);
  std::vector<HttpDNSServerInfo> servers{{host_, kHttpsPort, true}};
  for (std::size_t i = 0; i < std::max(ipv4.size(), ipv6.size()); ++i) {
    if (family != zo_net::kAddressFamilyIPv6 && i < ipv4.size()) servers.push_back(ipv4[i]);
    if (family != zo_net::kAddressFamilyIPv4 && i < ipv6.size()) servers.push_back(ipv6[i]);
  }
  return servers;
}

}  // namespace zo_tarvel
