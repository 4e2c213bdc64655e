#include "network/url/url.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

#include "base/text/strings.h"
#include "network/url/parsed_url.h"

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

bool IsLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

}  // namespace

std::string GetScheme(std::string_view url) {
  std::string scheme(Parsed(url).scheme.In(url));
  zo_base::ToLower(scheme);
  const bool known = std::ranges::find(kKnownSchemes, scheme) != kKnownSchemes.end();
  return known ? scheme : std::string();
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
  if (with_port && parsed.port.present()) {
    host.append(":").append(parsed.port.In(url));
  }
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
