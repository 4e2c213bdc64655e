#pragma once

#include <tarvel/address_family.h>

#include <cstddef>
#include <string>
#include <vector>

// What of the texts in answers and cache files may become part of a URL. Such texts are hostile:
// one with a path, a port or a user in it would lead elsewhere.
namespace WQBASE::network {

// Of any host, in bytes: more than the DNS has names for.
inline constexpr std::size_t kLongestHost = 255;

// A host name, or an IP literal, IPv6 in brackets. IPv4 in the plain form of four decimal numbers
// only, as all others mean different things to different readers.
bool CanBeHost(const std::string& text);

// Whether a URL's host can stand in a list of a query, and in the cache. Wider than CanBeHost: a
// host in another script is one. In JSON such a text takes no escapes.
bool CanBeAskedFor(const std::string& host);

// An IPv6 address as a URL has it, in brackets.
std::string InBrackets(const std::string& address);

// The addresses of one family among `texts`, each once, IPv4 in its plain form and IPv6 in
// brackets. The first kMostAddresses of them.
inline constexpr std::size_t kMostAddresses = 32;
std::vector<std::string> LiteralsOf(zo_net::AddressFamily family,
                                    const std::vector<std::string>& texts);

}  // namespace WQBASE::network
