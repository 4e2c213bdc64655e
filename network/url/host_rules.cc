#include "network/url/host_rules.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/text/strings.h"
#include "base/text/utf8.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

bool IsNameCharacter(char c) {
  return zo_base::IsLetterOrDigit(c) || c == '-' || c == '.' || c == '_';
}

bool IsHostName(const std::string& text) {
  return std::ranges::all_of(text, IsNameCharacter) && !IsIPAddress(text);
}

// IPv6 is in brackets here.
bool IsPlainLiteral(const std::string& text, zo_net::AddressFamily family) {
  if (family != zo_net::kAddressFamilyIPv6) return !ParsePlainIPAddress(text, family).empty();
  return text.starts_with('[') && text.ends_with(']') &&
         !ParsePlainIPAddress(text.substr(1, text.size() - 2), family).empty();
}

// False for all that would end a host, a list or a parameter.
bool IsQueryCharacter(char c) {
  constexpr std::string_view kSeparators = "&=,;#%+?/\\\"";
  return static_cast<unsigned char>(c) > ' ' && c != '\x7f' &&
         kSeparators.find(c) == std::string_view::npos;
}

}  // namespace

bool CanBeHost(const std::string& text) {
  if (text.empty() || text.size() > kLongestHost) return false;
  return IsHostName(text) || IsPlainLiteral(text, zo_net::kAddressFamilyIPv4) ||
         IsPlainLiteral(text, zo_net::kAddressFamilyIPv6);
}

bool CanBeAskedFor(const std::string& host) {
  return !host.empty() && host.size() <= kLongestHost &&
         std::ranges::all_of(host, IsQueryCharacter) && zo_base::IsUtf8(host);
}

std::vector<std::string> LiteralsOf(zo_net::AddressFamily family,
                                    const std::vector<std::string>& texts) {
  std::vector<std::string> literals;
  for (const std::string& text : texts) {
    if (literals.size() == kMostAddresses) break;
    std::string literal = family == zo_net::kAddressFamilyIPv6 ? InBrackets(text) : text;
    const bool known = std::ranges::find(literals, literal) != literals.end();
    if (!known && IsPlainLiteral(literal, family)) literals.push_back(std::move(literal));
  }
  return literals;
}

}  // namespace WQBASE::network
