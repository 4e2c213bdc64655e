#include "network/url/ip_address.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstddef>
#include <optional>

#include "base/text/strings.h"

namespace WQBASE::network {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kIPv4Size = 4;
constexpr std::size_t kIPv6Size = 16;

// nullopt for a foreign character and beyond 32 bits. No digits mean 0.
std::optional<std::uint32_t> ReadDigits(std::string_view digits, int base) {
  std::uint32_t value = 0;
  if (digits.empty()) return value;
  const char* const end = digits.data() + digits.size();
  const auto [stop, fault] = std::from_chars(digits.data(), end, value, base);
  return fault == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

std::optional<std::uint32_t> ReadIPv4Part(std::string_view part) {
  if (part.empty()) return std::nullopt;
  if (part.starts_with("0x") || part.starts_with("0X")) return ReadDigits(part.substr(2), 16);
  if (part.starts_with('0')) return ReadDigits(part.substr(1), 8);
  return ReadDigits(part, 10);
}

IPAddressBytes FourBytes(std::uint32_t address) {
  const auto byte = [address](int shift) { return static_cast<std::uint8_t>(address >> shift); };
  return {byte(24), byte(16), byte(8), byte(0)};
}

IPAddressBytes ParseIPv4(std::string_view text) {
  if (text.ends_with('.')) text.remove_suffix(1);
  std::uint64_t address = 0;
  for (std::size_t left = kIPv4Size; left > 0; --left) {
    const std::size_t dot = text.find('.');
    const std::size_t size = dot == kNone ? left : 1;
    const std::optional<std::uint32_t> part = ReadIPv4Part(text.substr(0, dot));
    if (!part || std::uint64_t{*part} >> (8 * size) != 0) return {};
    address = address << (8 * size) | *part;
    if (dot == kNone) return FourBytes(static_cast<std::uint32_t>(address));
    text.remove_prefix(dot + 1);
  }
  return {};  // There is a fifth part.
}

// Writes an IPv4 address at the end as two groups, since inet_pton() knows only its plain form.
IPAddressBytes ParseIPv6(std::string_view text) {
  if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
  std::string address(text);
  const std::size_t tail = address.rfind(':') + 1;
  if (address.find('.', tail) != std::string::npos) {
    const IPAddressBytes ipv4 = ParseIPv4(std::string_view(address).substr(tail));
    if (ipv4.empty()) return {};
    address.resize(tail);
    address += zo_base::StringFormat("%x:%x", ipv4[0] << 8 | ipv4[1], ipv4[2] << 8 | ipv4[3]);
  }
  return ParsePlainIPAddress(address, zo_net::kAddressFamilyIPv6);
}

}  // namespace

IPAddressBytes ParseIPAddress(std::string_view text) {
  return text.find(':') == kNone ? ParseIPv4(text) : ParseIPv6(text);
}

IPAddressBytes ParsePlainIPAddress(const std::string& text, zo_net::AddressFamily family) {
  const bool ipv6 = family == zo_net::kAddressFamilyIPv6;
  IPAddressBytes bytes(ipv6 ? kIPv6Size : kIPv4Size);
  const bool read = text.find('\0') == std::string::npos &&
                    inet_pton(ipv6 ? AF_INET6 : AF_INET, text.c_str(), bytes.data()) == 1;
  return read ? bytes : IPAddressBytes();
}

bool IsIPAddress(std::string_view text) { return !ParseIPAddress(text).empty(); }

bool GetIPFamily(std::string_view text, zo_net::AddressFamily& family) {
  const IPAddressBytes bytes = ParseIPAddress(text);
  if (bytes.empty()) return false;
  family = bytes.size() == kIPv4Size ? zo_net::kAddressFamilyIPv4 : zo_net::kAddressFamilyIPv6;
  return true;
}

std::string InBrackets(const std::string& address) {
  return (address.starts_with('[') ? "" : "[") + address + (address.ends_with(']') ? "" : "]");
}

std::string CanonicalHost(std::string_view host) {
  const IPAddressBytes bytes = ParseIPAddress(host);
  char text[INET6_ADDRSTRLEN] = "";
  if (bytes.empty()) return std::string(host);
  if (bytes.size() == kIPv4Size) return inet_ntop(AF_INET, bytes.data(), text, sizeof text);
  return InBrackets(inet_ntop(AF_INET6, bytes.data(), text, sizeof text));
}

}  // namespace WQBASE::network
