#include "network/url/host_rules.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <string_view>

#include "base/text/utf8.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

bool IsOfName(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_';
}

bool IsPlainIPv4(const std::string& text) {
  in_addr address{};
  return text.find('\0') == std::string::npos && inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool IsBracketedIPv6(const std::string& text) {
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') return false;
  const std::string inner = text.substr(1, text.size() - 2);
  in6_addr address{};
  return inner.find('\0') == std::string::npos && inet_pton(AF_INET6, inner.c_str(), &address) == 1;
}

bool IsName(const std::string& text) {
  return std::all_of(text.begin(), text.end(), IsOfName) && !IsIPAddress(text);
}

// Nothing that ends a host, a list or a parameter.
bool IsOfQueryHost(char c) {
  constexpr std::string_view kSeparators = "&=,;#%+?/\\\"";
  return static_cast<unsigned char>(c) > ' ' && c != '\x7f' &&
         kSeparators.find(c) == std::string_view::npos;
}

}  // namespace

std::string InBrackets(const std::string& address) {
  const bool opened = !address.empty() && address.front() == '[';
  const bool closed = !address.empty() && address.back() == ']';
  return (opened ? "" : "[") + address + (closed ? "" : "]");
}

bool CanBeHost(const std::string& text) {
  if (text.empty() || text.size() > kLongestHost) return false;
  return IsName(text) || IsPlainIPv4(text) || IsBracketedIPv6(text);
}

bool CanBeAskedFor(const std::string& host) {
  return !host.empty() && host.size() <= kLongestHost &&
         std::all_of(host.begin(), host.end(), IsOfQueryHost) && zo_base::IsUtf8(host);
}

std::vector<std::string> LiteralsOf(zo_net::AddressFamily family,
                                    const std::vector<std::string>& texts) {
  const bool ipv6 = family == zo_net::kAddressFamilyIPv6;
  std::vector<std::string> literals;
  for (const std::string& text : texts) {
    if (literals.size() == kMostAddresses) break;
    std::string literal = ipv6 ? InBrackets(text) : text;
    const bool usable = ipv6 ? IsBracketedIPv6(literal) : IsPlainIPv4(literal);
    const bool known = std::find(literals.begin(), literals.end(), literal) != literals.end();
    if (usable && !known) literals.push_back(std::move(literal));
  }
  return literals;
}

}  // namespace WQBASE::network
