#include "network/url/url.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <utility>

#include "base/text/strings.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

// The last four are links of the companion applications.
constexpr std::array<std::string_view, 10> kKnownSchemes = {
    "http",   "https",  "ftp",         "rtmp",        "rtsp",
    "mailto", "tarvel", "tarvel-link", "tarvel-call", "tarvel-share"};

ParsedUrl Parsed(std::string_view url) {
  constexpr std::size_t kLongest = std::numeric_limits<std::int32_t>::max();
  ParsedUrl parsed;
  ParseUrl(url.data(), static_cast<std::int32_t>(std::min(url.size(), kLongest)), &parsed);
  return parsed;
}

// Empty unless `written` is a known scheme, in any case.
std::string_view KnownScheme(std::string_view written) {
  const auto* const known = std::ranges::find_if(kKnownSchemes, [written](std::string_view scheme) {
    return zo_base::EqualIgnoringCase(scheme, written);
  });
  return known == kKnownSchemes.end() ? std::string_view() : *known;
}

// A file's path begins with a slash and stands where others have their host. So far no file is
// among the known schemes.
std::string_view SeparatorBehind(std::string_view scheme) {
  return scheme == "file" ? ":///" : "://";
}

std::int32_t LeadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);

  using Limits = std::numeric_limits<std::int32_t>;
  std::int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = std::min(value * 10 + (c - '0'), -std::int64_t{Limits::min()});
  }
  if (negative) return static_cast<std::int32_t>(-value);
  return static_cast<std::int32_t>(std::min(value, std::int64_t{Limits::max()}));
}

std::size_t EndOf(const UrlComponent& component) {
  return static_cast<std::size_t>(std::int64_t{component.begin} + component.length);
}

bool IsLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

}  // namespace

Url::Url(std::string text)
    : text_(std::move(text)),
      parsed_(Parsed(text_)),
      scheme_(KnownScheme(parsed_.scheme.In(text_))) {
  GetIPFamily(host(), family_);
}

std::int32_t Url::port() const { return LeadingNumber(parsed_.port.In(text_)); }

// Replaces the text from the host's begin to `end`. The same name may stand in the path as well.
Url Url::WithReplaced(std::size_t end, std::string_view replacement) const {
  if (!parsed_.host.present()) return *this;
  const auto begin = static_cast<std::size_t>(parsed_.host.begin);
  return std::string(text_).replace(begin, end - begin, replacement);
}

Url Url::WithHost(std::string_view host) const { return WithReplaced(EndOf(parsed_.host), host); }

Url Url::WithServer(std::string_view server) const {
  std::size_t end = EndOf(parsed_.host);
  if (has_port()) {
    end = EndOf(parsed_.port);
  } else if (end < text_.size() && text_[end] == ':') {
    ++end;  // A port that is empty.
  }
  return WithReplaced(end, server);
}

Url Url::WithQuery(std::string_view query) const {
  const char* const joint = text_.find('?') == std::string::npos ? "?" : "&";
  return std::string(text_).append(joint).append(query);
}

std::string GetScheme(std::string_view url) {
  return std::string(KnownScheme(Parsed(url).scheme.In(url)));
}

std::string GetSchemePrefix(std::string_view url) {
  std::string prefix = GetScheme(url);
  if (!prefix.empty()) prefix += SeparatorBehind(prefix);
  return prefix;
}

bool IsHttps(std::string_view url) { return GetScheme(url) == "https"; }

std::string GetHost(std::string_view url, bool with_port) {
  const ParsedUrl parsed = Parsed(url);
  std::string host(parsed.host.In(url));
  if (with_port && parsed.port.present()) host.append(":").append(parsed.port.In(url));
  return host;
}

std::string_view HostIn(std::string_view url) { return Parsed(url).host.In(url); }

std::int32_t GetPort(std::string_view url) { return LeadingNumber(Parsed(url).port.In(url)); }

void GetHostAndPort(std::string_view url, std::string& host, std::int32_t& port) {
  const ParsedUrl parsed = Parsed(url);
  // Read first: `url` may be a view of `host`.
  if (parsed.port.present()) port = LeadingNumber(parsed.port.In(url));
  host += parsed.host.In(url);
}

std::string UrlEncode(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    if (IsLetterOrDigit(c)) {
      encoded += c;
    } else {
      encoded += '%';
      encoded += kHexDigits[static_cast<unsigned char>(c) >> 4];
      encoded += kHexDigits[static_cast<unsigned char>(c) & 0xf];
    }
  }
  return encoded;
}

}  // namespace WQBASE::network
