#include "tools/backend/lab/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "base/text/strings.h"
#include "tools/backend/lab/private_network.h"

namespace tarvel_backend {

namespace {

constexpr int kFirstProgramAddress = 2;

bool IsForHostsV4(const std::string& bytes) {
  const auto first = static_cast<unsigned char>(bytes[0]);
  const auto second = static_cast<unsigned char>(bytes[1]);
  const bool is_programs = first == 198 && second == 18;
  return first != 0 && first != 127 && first < 224 && !is_programs;
}

bool IsForHostsV6(const std::string& bytes) {
  in6_addr address;
  std::memcpy(&address, bytes.data(), sizeof address);
  const bool is_programs = bytes[0] == '\xfd' && bytes[1] == '\x18';
  return !IN6_IS_ADDR_UNSPECIFIED(&address) && !IN6_IS_ADDR_LOOPBACK(&address) &&
         !IN6_IS_ADDR_MULTICAST(&address) && !IN6_IS_ADDR_LINKLOCAL(&address) &&
         !IN6_IS_ADDR_V4MAPPED(&address) && !is_programs;
}

}  // namespace

std::optional<Address> Address::FromText(const std::string& text) {
  for (const int family : {AF_INET, AF_INET6}) {
    unsigned char bytes[sizeof(in6_addr)];
    char usual[INET6_ADDRSTRLEN];
    if (inet_pton(family, text.c_str(), bytes) != 1) continue;
    Address address;
    address.text_ = inet_ntop(family, bytes, usual, sizeof usual);
    address.is_v4_ = family == AF_INET;
    address.bytes_.assign(reinterpret_cast<const char*>(bytes),
                          address.is_v4_ ? sizeof(in_addr) : sizeof(in6_addr));
    return address;
  }
  return std::nullopt;
}

bool Address::IsForHosts() const { return is_v4_ ? IsForHostsV4(bytes_) : IsForHostsV6(bytes_); }

Address ProgramAddressV4(int number) {
  const int last = kFirstProgramAddress + number;
  return Address::FromText(zo_base::StringFormat("198.18.%d.%d", last / 256, last % 256)).value();
}

Address ProgramAddressV6(int number) {
  return Address::FromText(zo_base::StringFormat("fd18::%x", kFirstProgramAddress + number))
      .value();
}

void BindTo(int fd, const Address& address, int port) {
  sockaddr_storage storage{};
  socklen_t size = 0;
  if (address.is_v4()) {
    auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
    v4.sin_family = AF_INET;
    v4.sin_port = htons(static_cast<std::uint16_t>(port));
    std::memcpy(&v4.sin_addr, address.bytes().data(), address.bytes().size());
    size = sizeof v4;
  } else {
    auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(static_cast<std::uint16_t>(port));
    std::memcpy(&v6.sin6_addr, address.bytes().data(), address.bytes().size());
    size = sizeof v6;
  }
  if (bind(fd, reinterpret_cast<const sockaddr*>(&storage), size) != 0) {
    ThrowSystemError("can't bind to " + address.text());
  }
}

}  // namespace tarvel_backend
