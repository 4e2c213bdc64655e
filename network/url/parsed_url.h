#pragma once

#include <cstdint>
#include <string_view>

namespace WQBASE::network {

// The position of a component in the parsed text: (0, -1) when it is missing. One that is present
// may be empty.
struct UrlComponent {
  bool present() const { return length >= 0; }
  // The component's characters in `text`, which is what was parsed. Empty when missing.
  std::string_view In(std::string_view text) const;

  std::int32_t begin = 0;
  std::int32_t length = -1;
};

// The components of a URL without their delimiters. An empty host, port or path counts as missing.
// An IPv6 host keeps its brackets.
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

// Splits any text in linear time. Nothing is validated, decoded or changed in case. Blanks and
// control characters around the text are skipped. The first ":" anywhere ends the scheme, so
// "host:80" has the scheme "host" and the host "80"; a text without ":" begins with the host. A
// backslash counts as a slash. A null text or a negative length has no components.
void ParseUrl(const char* text, std::int32_t length, ParsedUrl* out);

}  // namespace WQBASE::network
