#include "tarvel/http_agent/logic/internet_reachability.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace zo_tarvel {
namespace {

// A root name server's addresses, which every routing table covers. Nothing is ever sent there.
constexpr char kPublicIPv4[] = "198.41.0.4";
constexpr char kPublicIPv6[] = "2001:503:ba3e::2:30";
constexpr std::uint16_t kAnyPort = 443;

// Finds the address that the system would send from. Connecting a datagram socket only looks up the
// route. Returns false without one.
template <class Address>
bool FindSourceAddress(int family, const Address& destination, Address& source) {
  const int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  socklen_t length = sizeof source;
  const bool found =
      connect(fd, reinterpret_cast<const sockaddr*>(&destination), sizeof destination) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&source), &length) == 0;
  close(fd);
  return found;
}

bool IsIPv4Reachable() {
  sockaddr_in destination{};
  destination.sin_family = AF_INET;
  destination.sin_port = htons(kAnyPort);
  inet_pton(AF_INET, kPublicIPv4, &destination.sin_addr);
  sockaddr_in source{};
  constexpr std::uint32_t kLoopbackNet = 127;
  return FindSourceAddress(AF_INET, destination, source) && source.sin_addr.s_addr != INADDR_ANY &&
         ntohl(source.sin_addr.s_addr) >> 24 != kLoopbackNet &&
         source.sin_addr.s_addr != destination.sin_addr.s_addr;
}

bool IsIPv6Reachable() {
  sockaddr_in6 destination{};
  destination.sin6_family = AF_INET6;
  destination.sin6_port = htons(kAnyPort);
  inet_pton(AF_INET6, kPublicIPv6, &destination.sin6_addr);
  sockaddr_in6 source{};
  return FindSourceAddress(AF_INET6, destination, source) &&
         !IN6_IS_ADDR_LOOPBACK(&source.sin6_addr) && !IN6_IS_ADDR_UNSPECIFIED(&source.sin6_addr) &&
         !IN6_ARE_ADDR_EQUAL(&source.sin6_addr, &destination.sin6_addr);
}

}  // namespace

bool IsInternetReachable() { return IsIPv4Reachable() || IsIPv6Reachable(); }

}  // namespace zo_tarvel
