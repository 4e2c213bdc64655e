#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

// CMake's copy of the file that TARVEL_DEPLOYMENT_DEFAULTS names, or else of deployment_defaults.h.
#include "tarvel_deployment_defaults.h"

// Checks the defaults of the deployment while the library is compiled. At run time a value that
// can't work would only show as servers that are never reached.
namespace zo_tarvel::deployment_check {

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool IsHexDigit(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr bool IsOfName(char c) {
  return IsLetter(c) || IsDigit(c) || c == '-' || c == '.' || c == '_';
}
constexpr bool IsVisible(char c) { return c > ' ' && c < '\x7f'; }

template <class List, class Check>
constexpr bool AllAre(const List& list, Check check) {
  for (const auto& item : list) {
    if (!check(item)) return false;
  }
  return true;
}

// Decimal, without leading zeros, which some readers take for octal.
constexpr bool IsNumber(std::string_view text, int highest) {
  if (text.empty() || text.size() > 5 || (text.size() > 1 && text.front() == '0')) return false;
  int number = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return false;
    number = number * 10 + (c - '0');
  }
  return number <= highest;
}

constexpr bool IsIPv4(std::string_view text) {
  for (int dots_left = 3;; --dots_left) {
    const std::size_t end = text.find('.');
    if (!IsNumber(text.substr(0, end), 255)) return false;
    if (end == std::string_view::npos) return dots_left == 0;
    text.remove_prefix(end + 1);
  }
}

// How many groups of an IPv6 address are in `text`, joined by colons; -1 for a text of another
// kind.
constexpr int IPv6Groups(std::string_view text) {
  if (text.empty()) return 0;
  for (int groups = 1;; ++groups) {
    const std::size_t end = text.find(':');
    const std::string_view group = text.substr(0, end);
    if (group.empty() || group.size() > 4 || !AllAre(group, IsHexDigit)) return -1;
    if (end == std::string_view::npos) return groups;
    text.remove_prefix(end + 1);
  }
}

constexpr bool IsBracketedIPv6(std::string_view text) {
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') return false;
  text = text.substr(1, text.size() - 2);
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) return IPv6Groups(text) == 8;
  const int before = IPv6Groups(text.substr(0, gap));
  const int behind = IPv6Groups(text.substr(gap + 2));
  return before >= 0 && behind >= 0 && before + behind < 8;
}

constexpr bool IsHost(std::string_view text) {
  if (IsBracketedIPv6(text)) return true;
  return !text.empty() && text.size() <= 255 && AllAre(text, IsOfName);
}

constexpr bool IsHostAndPort(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return false;
  const std::string_view port = text.substr(colon + 1);
  return IsHost(text.substr(0, colon)) && IsNumber(port, 65'535) && port != "0";
}

constexpr bool IsWebUrl(std::string_view text) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (!text.starts_with(scheme)) continue;
    text.remove_prefix(scheme.size());
    const std::string_view authority = text.substr(0, text.find_first_of("/?#"));
    return (IsHost(authority) || IsHostAndPort(authority)) && AllAre(text, IsVisible);
  }
  return false;
}

constexpr bool IsPath(std::string_view text) {
  return text.starts_with('/') && AllAre(text, IsVisible);
}

static_assert(IsWebUrl(kDefaultLBSUrl), "kDefaultLBSUrl: must be a URL, http:// or https://");
static_assert(IsHostAndPort(kDefaultLink), "kDefaultLink: must be \"host:port\"");
static_assert(IsHost(kDefaultHttpDNSHost), "kDefaultHttpDNSHost: must be a host name");
static_assert(std::size(kDefaultHttpDNSIPv4) > 0 && AllAre(kDefaultHttpDNSIPv4, IsIPv4),
              "kDefaultHttpDNSIPv4: must be IPv4 addresses, one at least");
static_assert(AllAre(kDefaultHttpDNSIPv6, IsBracketedIPv6),
              "kDefaultHttpDNSIPv6: must be IPv6 addresses in brackets, or none");
static_assert(IsWebUrl(kDefaultStatisticsHost),
              "kDefaultStatisticsHost: must be a URL, http:// or https://");
static_assert(IsPath(kDefaultMessageStatisticsPath),
              "kDefaultMessageStatisticsPath: must begin with a slash");
static_assert(AllAre(kDefaultObjectStorageServers, IsWebUrl),
              "kDefaultObjectStorageServers: must be URLs, http:// or https://");
static_assert(IsWebUrl(kDefaultObjectStorageUrl),
              "kDefaultObjectStorageUrl: must be a URL, http:// or https://");

}  // namespace zo_tarvel::deployment_check
