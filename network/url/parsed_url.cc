#include "network/url/parsed_url.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace WQBASE::network {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool IsBlank(char c) { return static_cast<unsigned char>(c) <= 0x20; }

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Cuts `text` off before the delimiter at `position` and returns what followed it. Without a
// delimiter, for kNone, nothing follows.
std::optional<std::string_view> CutAt(std::string_view& text, std::size_t position) {
  if (position == kNone) return std::nullopt;
  const std::string_view behind = text.substr(position + 1);
  text = text.substr(0, position);
  return behind;
}

// The length of the IPv6 address in brackets at the start; all of the text when it is never closed.
std::size_t BracketedSize(std::string_view host_and_port) {
  if (!host_and_port.starts_with('[')) return 0;
  return std::min(host_and_port.rfind(']'), host_and_port.size() - 1) + 1;
}

class UrlParser {
 public:
  explicit UrlParser(const char* text) : text_(text) {}

  ParsedUrl Parse(std::string_view text) {
    std::string_view scheme = Trimmed(text);
    std::string_view rest = scheme;
    if (const auto behind = CutAt(scheme, scheme.find(':'))) {
      url_.scheme = At(scheme);
      rest = *behind;
    }
    rest.remove_prefix(std::min(rest.find_first_not_of("/\\"), rest.size()));
    const std::string_view authority = rest.substr(0, rest.find_first_of("/\\?#"));
    ReadAuthority(authority);
    ReadPathQueryAndRef(rest.substr(authority.size()));
    return url_;
  }

 private:
  UrlComponent At(std::optional<std::string_view> piece) const {
    if (!piece) return {};
    return {static_cast<std::int32_t>(piece->data() - text_),
            static_cast<std::int32_t>(piece->size())};
  }
  UrlComponent AtUnlessEmpty(std::string_view piece) const {
    return piece.empty() ? UrlComponent{} : At(piece);
  }

  void ReadAuthority(std::string_view authority) {
    if (const auto host_and_port = CutAt(authority, authority.rfind('@'))) {
      url_.password = At(CutAt(authority, authority.find(':')));
      url_.username = At(authority);
      authority = *host_and_port;
    }
    const std::size_t bracketed = BracketedSize(authority);
    const std::size_t colon = authority.rfind(':');
    if (colon != kNone && colon >= bracketed) {
      url_.port = AtUnlessEmpty(*CutAt(authority, colon));
    }
    url_.host = AtUnlessEmpty(bracketed > 0 ? authority.substr(0, bracketed) : authority);
  }

  void ReadPathQueryAndRef(std::string_view tail) {
    url_.ref = At(CutAt(tail, tail.find('#')));
    url_.query = At(CutAt(tail, tail.find('?')));
    url_.path = AtUnlessEmpty(tail);
  }

  const char* const text_;
  ParsedUrl url_;
};

}  // namespace

std::string_view UrlComponent::In(std::string_view text) const {
  if (!present()) return {};
  return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(length));
}

void ParseUrl(const char* text, std::int32_t length, ParsedUrl* out) {
  *out = {};
  if (text == nullptr || length < 0) return;
  *out = UrlParser(text).Parse({text, static_cast<std::size_t>(length)});
}

}  // namespace WQBASE::network
