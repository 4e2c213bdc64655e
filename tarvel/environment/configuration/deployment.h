#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

// CMake's copy of the file that TARVEL_DEPLOYMENT_DEFAULTS names, or else of deployment_defaults.h.
#include "tarvel_deployment_defaults.h"

// Checks the defaults of the deployment while the library is compiled. At run time a value that
// can't work would only show as servers that are never reached.
namespace zo_tarvel::deployment_check {

constexpr bool IsMadeOf(std::string_view text, std::string_view characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

constexpr bool AllAre(const auto& list, auto check) { return std::ranges::all_of(list, check); }

constexpr bool IsVisible(char c) { return c > ' ' && c < '\x7f'; }

// Decimal, without leading zeros, which some readers take for octal.
constexpr bool IsNumber(std::string_view text, int highest) {
  if (!IsMadeOf(text, "0123456789") || text.size() > 5) return false;
  int number = 0;
  for (const char c : text) number = number * 10 + (c - '0');
  return number <= highest && (text.size() == 1 || text.front() != '0');
}

// The number of parts between separators; -1 when one of them fails the check.
constexpr int CountParts(std::string_view text, char separator, auto check) {
  for (int parts = 1;; ++parts) {
    const std::size_t end = text.find(separator);
    if (!check(text.substr(0, end))) return -1;
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

constexpr bool IsIPv4(std::string_view text) {
  return CountParts(text, '.', [](auto part) { return IsNumber(part, 255); }) == 4;
}

constexpr int CountIPv6Groups(std::string_view text) {
  if (text.empty()) return 0;
  return CountParts(text, ':', [](auto group) {
    return group.size() <= 4 && IsMadeOf(group, "0123456789abcdefABCDEF");
  });
}

constexpr bool IsBracketedIPv6(std::string_view text) {
  if (!text.starts_with('[') || !text.ends_with(']')) return false;
  text = text.substr(1, text.size() - 2);
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) return CountIPv6Groups(text) == 8;
  const int before = CountIPv6Groups(text.substr(0, gap));
  const int behind = CountIPv6Groups(text.substr(gap + 2));
  return before >= 0 && behind >= 0 && before + behind < 8;
}

constexpr bool IsHost(std::string_view text) {
  constexpr std::string_view kOfName =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";
  return IsBracketedIPv6(text) || (IsMadeOf(text, kOfName) && text.size() <= 255);
}

constexpr bool IsHostAndPort(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return false;
  const std::string_view port = text.substr(colon + 1);
  return IsHost(text.substr(0, colon)) && IsNumber(port, 65'535) && port != "0";
}

constexpr bool IsWebUrl(std::string_view text) {
  const std::size_t scheme = text.starts_with("http://") ? 7 : text.starts_with("https://") ? 8 : 0;
  const std::string_view rest = text.substr(scheme);
  const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
  return scheme > 0 && (IsHost(authority) || IsHostAndPort(authority)) && AllAre(rest, IsVisible);
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
