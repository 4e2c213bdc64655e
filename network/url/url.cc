#include "network/url/url.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <utility>

#include "base/text/strings.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

// The last four are the link schemes of the companion applications.
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

std::int32_t LeadingNumber(std::string_view text) {
  using Limits = std::numeric_limits<std::int32_t>;
  const long number = std::strtol(std::string(text).c_str(), nullptr, 10);
  return static_cast<std::int32_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

std::size_t EndOf(const UrlComponent& component) {
  return static_cast<std::size_t>(std::int64_t{component.begin} + component.length);
}

}  // namespace

Url::Url(std::string text)
    : text_(std::move(text)),
      parsed_(Parsed(text_)),
      scheme_(KnownScheme(parsed_.scheme.In(text_))) {
  GetIPFamily(host(), family_);
}

std::int32_t Url::port() const { return LeadingNumber(parsed_.port.In(text_)); }

// Replaces the text from the start of the host to `end`.
Url Url::WithReplaced(std::size_t end, std::string_view replacement) const {
  if (!parsed_.host.present()) return *this;
  const auto begin = static_cast<std::size_t>(parsed_.host.begin);
  return std::string(text_).replace(begin, end - begin, replacement);
}

Url Url::WithHost(std::string_view host) const { return WithReplaced(EndOf(parsed_.host), host); }

Url Url::WithServer(std::string_view host_and_port) const {
  // Only the digits of a port are replaced, so a URL that is refused for its port stays refused.
  std::size_t end = EndOf(parsed_.host);
  if (end < text_.size() && text_[end] == ':') {
    end = std::min(text_.find_first_not_of("0123456789", end + 1), text_.size());
  }
  return WithReplaced(end, host_and_port);
}

Url Url::WithQuery(std::string_view query) const {
  return std::string(text_).append(text_.find('?') == std::string::npos ? "?" : "&").append(query);
}

std::string GetScheme(std::string_view url) {
  return std::string(KnownScheme(Parsed(url).scheme.In(url)));
}

std::string GetSchemePrefix(std::string_view url) {
  const std::string scheme = GetScheme(url);
  // A file has no host. So far "file" is no known scheme.
  return scheme.empty() ? "" : scheme + (scheme == "file" ? ":///" : "://");
}

bool IsHttps(std::string_view url) { return GetScheme(url) == "https"; }

std::string GetHost(std::string_view url, bool with_port) {
  const ParsedUrl parsed = Parsed(url);
  std::string host(parsed.host.In(url));
  if (with_port && parsed.port.present()) host.append(":").append(parsed.port.In(url));
  return host;
}

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
    if (zo_base::IsLetterOrDigit(c)) {
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
