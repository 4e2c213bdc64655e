#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/json/json11.h"
#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

// One HTTPDNS server.
struct HttpDNSServerInfo {
  std::string host;       // A name or an IP literal, IPv6 in brackets.
  std::int32_t port = 0;  // Of an IP literal; 0 for that of the scheme.
  bool https = true;

  bool operator==(const HttpDNSServerInfo&) const = default;
};

// Reads an array of objects with "host", "port" and "https". What can't be part of a URL is left
// out, with `only_https` what isn't https, and of more than 32 the rest.
std::vector<HttpDNSServerInfo> ReadServers(const zo_base::json11::Json& list, bool only_https);

// Where a URL on this server points to: of a name, the name; of an IP literal, with its port.
std::string AuthorityOf(const HttpDNSServerInfo& server);

// The HTTPDNS servers in memory: the service's name first, then addresses for the time when the
// local DNS is broken.
//
// Threads: any.
class HttpDNSServerList {
 public:
  // An empty list doesn't replace a known one.
  void SetServers(const std::string& host, const std::vector<HttpDNSServerInfo>& ipv4,
                  const std::vector<HttpDNSServerInfo>& ipv6);

  // In the order of trying. For any family, both kinds of addresses by turns. With `only_https`
  // without what isn't https; the service's name stays.
  std::vector<HttpDNSServerInfo> GetServers(zo_net::AddressFamily family, bool only_https) const;
  // The service's name.
  std::string GetHost() const;

 private:
  mutable zo_base::_thread_recursive_mutex lock_;
  std::string host_ ZO_GUARDED_BY(lock_);
  std::vector<HttpDNSServerInfo> ipv4_ ZO_GUARDED_BY(lock_);
  std::vector<HttpDNSServerInfo> ipv6_ ZO_GUARDED_BY(lock_);
};

}  // namespace zo_tarvel
