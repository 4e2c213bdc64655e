#pragma once

#include <tarvel/address_family.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace WQBASE::network {

// An address in network byte order: 4 bytes for IPv4, 16 for IPv6, empty for none.
using IPAddressBytes = std::vector<std::uint8_t>;

// Reads an IP literal as the host of a URL may have it. The whole text must be the address: a host
// name, a zone id or a blank makes it none.
//
// A text without ":" is IPv4 in any form in use: up to four numbers, each decimal, octal ("017") or
// hexadecimal ("0x1f"). The last number fills the bytes that are left ("127.1"), and one "." may
// follow. A text with ":" is IPv6, with brackets or without; such an IPv4 address may be its last
// two groups.
IPAddressBytes ParseIPAddress(std::string_view text);

// Reads only the form that all programs read alike: IPv4 as four decimal numbers, or IPv6 without
// brackets whose IPv4 part, if any, has that form too.
IPAddressBytes ParsePlainIPAddress(const std::string& text, zo_net::AddressFamily family);

bool IsIPAddress(std::string_view text);

// Whether `text` is an IP literal. If so, sets `family` to IPv4 or IPv6.
bool GetIPFamily(std::string_view text, zo_net::AddressFamily& family);

// An IPv6 address in brackets, as a URL has it. Adds only the missing ones.
std::string InBrackets(const std::string& address);

// An IP literal in its usual form: 127.0.0.1 for 127.1, and IPv6 in brackets. Any other host is
// returned unchanged.
std::string CanonicalHost(std::string_view host);

}  // namespace WQBASE::network
