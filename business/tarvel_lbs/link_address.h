#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <string>

namespace zo_tarvel {

// The parts of a link address "host:port".
struct LinkAddress {
  std::string host;       // As it is written, an IPv6 address in its brackets.
  std::int32_t port = 0;  // 0 to 65535; 0 when there is none, and for one that can't be.
  EMAddressFamily family = kEMAddressFamilyAny;  // Of an IP literal; of a name, any.
};

LinkAddress SplitLinkAddress(const std::string& text);

// The family alone.
EMAddressFamily FamilyOfLinkAddress(const std::string& text);

// False for a text without a host, and for one that is too long for a host, which wouldn't fit a
// client's buffer, and a port.
bool CanBeLinkAddress(const std::string& text);

}  // namespace zo_tarvel
