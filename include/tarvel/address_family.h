// The family of IP addresses, in a header of its own for those who need nothing else of the
// library.
#ifndef TARVEL_ADDRESS_FAMILY_H_
#define TARVEL_ADDRESS_FAMILY_H_

#include <cstdint>

namespace zo_net {

// Which IP addresses the network at hand can reach.
enum AddressFamily : std::int32_t {
  kAddressFamilyAny = 0,   // Both, or not known.
  kAddressFamilyIPv4 = 1,  // IPv4 only.
  kAddressFamilyIPv6 = 2,  // IPv6 only.
};

}  // namespace zo_net

#endif  // TARVEL_ADDRESS_FAMILY_H_
