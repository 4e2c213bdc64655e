#pragma once

#include <cstdint>
#include <string_view>

namespace WQBASE::network {

// Where a component stands in the parsed text. A missing one is (0, -1); one that is present may be
// empty.
struct UrlComponent {
  bool present() const { return length >= 0; }
  // The component's characters; `text` is what was parsed. Empty when missing.
  std::string_view In(std::string_view text) const;

  std::int32_t begin = 0;
  std::int32_t length = -1;
};

// The components of a URL, none of them with its delimiters. Host, port and path are never both
// present and empty. The host of an IPv6 address keeps its brackets.
struct ParsedUrl {
  UrlComponent scheme;
  UrlComponent username;
  UrlComponent password;
  UrlComponent host;
  UrlComponent port;
  UrlComponent path;
  UrlComponent query;
  UrlComponent ref;
};

// Splits any text in linear time; nothing is validated, decoded or changed in case. Control
// characters and blanks around the text don't count. The first ":" ends the scheme, wherever it
// stands, so "host:80" is the scheme "host" and the host "80"; a text without ":" begins with the
// host. Slashes and backslashes are alike. A null text or a negative length has no components.
void ParseUrl(const char* text, std::int32_t length, ParsedUrl* out);

}  // namespace WQBASE::network
