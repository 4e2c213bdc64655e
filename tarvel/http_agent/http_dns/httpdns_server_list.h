#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/json/json11.h"
#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

struct HttpDNSServerInfo {
  std::string host;       // A name or an IP literal, IPv6 in brackets.
  std::int32_t port = 0;  // Applies to IP literals only; 0 means the scheme's port.
  bool https = true;

  bool operator==(const HttpDNSServerInfo&) const = default;
};

// Reads an array of objects with "host", "port" and "https". Left out are servers that cannot be
// part of a URL, with `only_https` those without https, and all beyond 32.
std::vector<HttpDNSServerInfo> ReadServers(const zo_base::json11::Json& list, bool only_https);

// The authority of a URL on this server: a name without a port, or an IP literal with one.
std::string AuthorityOf(const HttpDNSServerInfo& server);

// The HTTPDNS servers in memory. It may be used on any thread.
class HttpDNSServerList {
 public:
  // An empty list doesn't replace a known one.
  void SetServers(const std::string& host, const std::vector<HttpDNSServerInfo>& ipv4,
                  const std::vector<HttpDNSServerInfo>& ipv6);

  // Returns the service's name first, then the addresses, which help while the local DNS is broken.
  // The two families take turns. `only_https` leaves out addresses without https.
  std::vector<HttpDNSServerInfo> GetServers(zo_net::AddressFamily family, bool only_https) const;

 private:
  mutable zo_base::_thread_recursive_mutex lock_;
  std::string host_ ZO_GUARDED_BY(lock_);
  std::vector<HttpDNSServerInfo> ipv4_ ZO_GUARDED_BY(lock_);
  std::vector<HttpDNSServerInfo> ipv6_ ZO_GUARDED_BY(lock_);
};

}  // namespace zo_tarvel
