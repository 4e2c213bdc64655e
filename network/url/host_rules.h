#pragma once

#include <tarvel/address_family.h>

#include <cstddef>
#include <string>
#include <vector>

// Which strings from answers and cache files may become part of a URL. Such strings may be hostile:
// one with a path, a port or a user in it would send the request elsewhere.
namespace WQBASE::network {

// The longest host in bytes. No name in the DNS is longer.
inline constexpr std::size_t kLongestHost = 255;

// Whether `text` may become the host of a URL: a host name, IPv4 as four decimal numbers, or IPv6
// in brackets. Programs read other forms of IPv4 in different ways.
bool CanBeHost(const std::string& text);

// Whether the host of a URL may be listed in a query for addresses and kept in the cache. Allows
// more than CanBeHost: a name in another script, for instance. It needs no escapes in JSON.
bool CanBeAskedFor(const std::string& host);

// The most addresses of a host that are used.
inline constexpr std::size_t kMostAddresses = 32;
// Selects the addresses of one family, each once: IPv4 as four decimal numbers, IPv6 in brackets,
// which are added where they are missing. Returns the first kMostAddresses of them.
std::vector<std::string> LiteralsOf(zo_net::AddressFamily family,
                                    const std::vector<std::string>& texts);

}  // namespace WQBASE::network
