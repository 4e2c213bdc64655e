#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <string>

namespace zo_tarvel {

// A link address "host:port" with its parts. A plain value.
struct LinkAddress {
  std::string text;
  std::string host;       // As it is written, an IPv6 address in its brackets.
  std::int32_t port = 0;  // 0 to 65535; 0 also for a port that is missing or out of range.
  EMAddressFamily family = kEMAddressFamilyAny;  // Of an IP literal. Of a name, any.
};

LinkAddress SplitLinkAddress(const std::string& text);

// Whether the address has a host that fits the client's buffer, and no blanks or control bytes.
bool IsUsable(const LinkAddress& address);

}  // namespace zo_tarvel
