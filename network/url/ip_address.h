#pragma once

#include <tarvel/address_family.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace WQBASE::network {

// An address in network byte order: 4 bytes of IPv4, 16 of IPv6; empty when there is none.
using IPAddressBytes = std::vector<std::uint8_t>;

// Reads an IP literal, as a URL has it for a host. All of the text must be the address; a name, a
// zone id and blanks make it none.
//
// A text without ":" is IPv4, in all the forms that are in use: up to four numbers, each decimal,
// octal ("017") or hexadecimal ("0x1f"), the last of which fills the bytes that are left ("127.1");
// one "." may follow. A text with ":" is IPv6, with brackets or without; an IPv4 address may stand
// for its last two groups.
IPAddressBytes ParseIPAddress(std::string_view text);

bool IsIPAddress(std::string_view text);

// True if `text` is an IP literal; `family` is then kAddressFamilyIPv4 or kAddressFamilyIPv6, and
// else left alone.
bool GetIPFamily(std::string_view text, zo_net::AddressFamily& family);

// A URL's host in its usual form: of an IP literal its plain text (127.0.0.1 for 127.1), that of
// IPv6 in brackets. A host that is no IP literal is returned as it is.
std::string CanonicalHost(std::string_view host);

}  // namespace WQBASE::network
