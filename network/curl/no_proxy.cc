#include "network/curl/no_proxy.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/text/strings.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

// libcurl reads the environment for each transfer too, on the same thread.
std::string NoProxyVariable() {
  for (const char* const name : {"no_proxy", "NO_PROXY"}) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

bool SameBits(const IPAddressBytes& a, const IPAddressBytes& b, std::size_t count) {
  const std::size_t whole = count / 8;
  const std::size_t rest = count % 8;
  return std::memcmp(a.data(), b.data(), whole) == 0 &&
         (rest == 0 || (a[whole] ^ b[whole]) >> (8 - rest) == 0);
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
  return std::any_of(entries.begin(), entries.end(),
                     [&](const std::string& entry) { return Covers(entry, bytes); });
}

}  // namespace WQBASE::network
