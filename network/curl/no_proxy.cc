#include "network/curl/no_proxy.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "base/text/strings.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

// Not safe while another thread changes the environment, but libcurl reads it on this thread too.
std::string NoProxyVariable() {
  for (const char* const name : {"no_proxy", "NO_PROXY"}) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

bool SameBits(const IPAddressBytes& a, const IPAddressBytes& b, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (((a[i / 8] ^ b[i / 8]) << (i % 8) & 0x80) != 0) return false;
  }
  return true;
}

bool Covers(const std::string& entry, const IPAddressBytes& address) {
  const std::size_t slash = entry.find('/');
  const IPAddressBytes network = ParseIPAddress(entry.substr(0, slash));
  if (network.empty() || network.size() != address.size()) return false;
  const std::size_t all_bits = 8 * address.size();
  std::size_t bits = 0;
  if (slash != std::string::npos) bits = std::strtoul(entry.c_str() + slash + 1, nullptr, 10);
  return bits <= all_bits && SameBits(network, address, bits == 0 ? all_bits : bits);
}

}  // namespace

bool NoProxyLists(std::string_view address) {
  const std::string list = NoProxyVariable();
  const IPAddressBytes bytes = ParseIPAddress(address);
  const auto entries = zo_base::Split(list, ", \t");
  return std::ranges::any_of(entries, [&](const auto& entry) { return Covers(entry, bytes); });
}

}  // namespace WQBASE::network
