#include "network/url/parsed_url.h"

#include <cstddef>

namespace WQBASE::network {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

bool IsBlank(char c) { return static_cast<unsigned char>(c) <= 0x20; }

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// What stands before `end`, which is cut off `text` together with one character behind it.
std::string_view CutFront(std::string_view& text, std::size_t end) {
  const std::string_view front = text.substr(0, end);
  text.remove_prefix(end + 1);
  return front;
}

// What stands behind `begin`, which is cut off `text` together with the character at `begin`.
std::string_view CutBack(std::string_view& text, std::size_t begin) {
  const std::string_view back = text.substr(begin + 1);
  text = text.substr(0, begin);
  return back;
}

// How much of an authority's end is an address in brackets. One that is never closed has it all.
std::size_t BracketedSize(std::string_view host_and_port) {
  if (!host_and_port.starts_with('[')) return 0;
  const std::size_t end = host_and_port.rfind(']');
  return end == kNone ? host_and_port.size() : end + 1;
}

class UrlParser {
 public:
  explicit UrlParser(const char* text) : text_(text) {}

  ParsedUrl Parse(std::string_view rest) {
    rest = Trimmed(rest);
    if (const std::size_t colon = rest.find(':'); colon != kNone) {
      url_.scheme = At(CutFront(rest, colon));
    }
    while (rest.starts_with('/') || rest.starts_with('\\')) rest.remove_prefix(1);
    const std::string_view authority = rest.substr(0, rest.find_first_of("/\\?#"));
    ReadAuthority(authority);
    ReadPathQueryAndRef(rest.substr(authority.size()));
    return url_;
  }

 private:
  UrlComponent At(std::string_view piece) const {
    return {static_cast<std::int32_t>(piece.data() - text_),
            static_cast<std::int32_t>(piece.size())};
  }

  UrlComponent AtUnlessEmpty(std::string_view piece) const {
    return piece.empty() ? UrlComponent{} : At(piece);
  }

  void ReadAuthority(std::string_view authority) {
    if (const std::size_t at = authority.rfind('@'); at != kNone) {
      ReadUserInfo(CutFront(authority, at));
    }
    ReadHostAndPort(authority);
  }

  void ReadUserInfo(std::string_view user_info) {
    if (const std::size_t colon = user_info.find(':'); colon != kNone) {
      url_.password = At(CutBack(user_info, colon));
    }
    url_.username = At(user_info);
  }

  void ReadHostAndPort(std::string_view part) {
    const std::size_t bracketed = BracketedSize(part);
    const std::size_t colon = part.rfind(':');
    if (colon != kNone && colon >= bracketed) url_.port = AtUnlessEmpty(CutBack(part, colon));
    url_.host = AtUnlessEmpty(bracketed > 0 ? part.substr(0, bracketed) : part);
  }

  void ReadPathQueryAndRef(std::string_view tail) {
    if (const std::size_t hash = tail.find('#'); hash != kNone) {
      url_.ref = At(CutBack(tail, hash));
    }
    if (const std::size_t mark = tail.find('?'); mark != kNone) {
      url_.query = At(CutBack(tail, mark));
    }
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
