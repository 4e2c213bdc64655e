#include "network/url/ip_address.h"

#include <arpa/inet.h>

#include <cstddef>
#include <limits>
#include <optional>

namespace WQBASE::network {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kIPv4Size = 4;
constexpr std::size_t kIPv6Size = 16;
constexpr std::size_t kGroupSize = 2;
constexpr std::size_t kLongestGroup = 4;

// A value at or above every base for what is no digit.
unsigned DigitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A') + 10;
  return 16;
}

// None for a foreign character and beyond 32 bits; no digits are 0.
std::optional<std::uint32_t> ReadDigits(std::string_view digits, unsigned base) {
  std::uint64_t value = 0;
  for (const char c : digits) {
    const unsigned digit = DigitValue(c);
    if (digit >= base) return std::nullopt;
    value = value * base + digit;
    if (value > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  }
  return static_cast<std::uint32_t>(value);
}

std::optional<std::uint32_t> ReadIPv4Part(std::string_view part) {
  if (part.empty()) return std::nullopt;
  if (part.starts_with("0x") || part.starts_with("0X")) return ReadDigits(part.substr(2), 16);
  if (part.starts_with('0')) return ReadDigits(part.substr(1), 8);
  return ReadDigits(part, 10);
}

// Appends the low `size` bytes of `value`; false if it needs more.
bool AppendNumber(std::uint64_t value, std::size_t size, IPAddressBytes& bytes) {
  if (value >> (8 * size) != 0) return false;
  for (std::size_t left = size; left > 0; --left) {
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * (left - 1))));
  }
  return true;
}

IPAddressBytes ParseIPv4(std::string_view text) {
  if (text.ends_with('.')) text.remove_suffix(1);
  IPAddressBytes bytes;
  while (bytes.size() < kIPv4Size) {
    const std::size_t dot = text.find('.');
    const std::optional<std::uint32_t> part = ReadIPv4Part(text.substr(0, dot));
    const std::size_t size = dot == kNone ? kIPv4Size - bytes.size() : 1;
    if (!part || !AppendNumber(*part, size, bytes)) return {};
    if (dot == kNone) return bytes;
    text.remove_prefix(dot + 1);
  }
  return {};  // A fifth part.
}

bool AppendGroup(std::string_view group, IPAddressBytes& bytes) {
  if (group.empty() || group.size() > kLongestGroup) return false;
  const std::optional<std::uint32_t> value = ReadDigits(group, 16);
  return value && AppendNumber(*value, kGroupSize, bytes);
}

bool AppendIPv4(std::string_view text, IPAddressBytes& bytes) {
  if (text.find('.') == kNone) return false;  // A lone number is a group or nothing.
  const IPAddressBytes tail = ParseIPv4(text);
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return !tail.empty();
}

// Groups with single colons between them. An empty text has none.
bool AppendGroups(std::string_view text, bool may_end_in_ipv4, IPAddressBytes& bytes) {
  if (text.empty()) return true;
  while (bytes.size() < kIPv6Size) {
    const std::size_t colon = text.find(':');
    const std::string_view group = text.substr(0, colon);
    const bool is_last = colon == kNone;
    if (!AppendGroup(group, bytes) && !(is_last && may_end_in_ipv4 && AppendIPv4(group, bytes))) {
      return false;
    }
    if (is_last) return true;
    text.remove_prefix(colon + 1);
  }
  return false;
}

std::string_view WithoutBrackets(std::string_view text) {
  if (!text.starts_with('[') || !text.ends_with(']')) return text;
  return text.substr(1, text.size() - 2);
}

IPAddressBytes ParseIPv6(std::string_view text) {
  const std::size_t gap = text.find("::");
  IPAddressBytes bytes;
  if (gap == kNone) {
    if (!AppendGroups(text, true, bytes) || bytes.size() != kIPv6Size) return {};
    return bytes;
  }
  IPAddressBytes tail;
  if (!AppendGroups(text.substr(0, gap), false, bytes)) return {};
  if (!AppendGroups(text.substr(gap + 2), true, tail)) return {};
  // The gap stands for at least one group.
  if (bytes.size() + tail.size() > kIPv6Size - kGroupSize) return {};
  bytes.resize(kIPv6Size - tail.size());
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return bytes;
}

}  // namespace

IPAddressBytes ParseIPAddress(std::string_view text) {
  return text.find(':') == kNone ? ParseIPv4(text) : ParseIPv6(WithoutBrackets(text));
}

bool IsIPAddress(std::string_view text) { return !ParseIPAddress(text).empty(); }

bool GetIPFamily(std::string_view text, zo_net::AddressFamily& family) {
  const IPAddressBytes bytes = ParseIPAddress(text);
  if (bytes.empty()) return false;
  family = bytes.size() == kIPv4Size ? zo_net::kAddressFamilyIPv4 : zo_net::kAddressFamilyIPv6;
  return true;
}

std::string CanonicalHost(std::string_view host) {
  const IPAddressBytes bytes = ParseIPAddress(host);
  char text[INET6_ADDRSTRLEN] = "";
  if (bytes.empty()) return std::string(host);
  if (bytes.size() == kIPv4Size) return inet_ntop(AF_INET, bytes.data(), text, sizeof text);
  inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
  return std::string("[").append(text).append("]");
}

}  // namespace WQBASE::network
