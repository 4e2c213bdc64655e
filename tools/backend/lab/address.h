#pragma once

#include <sys/socket.h>

#include <optional>
#include <string>

namespace tarvel_backend {

// An IP address in its usual form. A plain value.
class Address {
 public:
  static std::optional<Address> FromText(const std::string& text);

  const std::string& text() const { return text_; }
  bool is_v4() const { return is_v4_; }
  const std::string& bytes() const { return bytes_; }  // In network order.
  // "192.0.2.1/32".
  std::string AsNetwork() const { return text_ + (is_v4_ ? "/32" : "/128"); }
  // Returns whether a host of a lab may have it: it is no special one, and none of the program's.
  bool IsForHosts() const;

  bool operator<(const Address& other) const { return text_ < other.text_; }

 private:
  Address() = default;

  std::string text_;
  std::string bytes_;
  bool is_v4_ = true;
};

// The addresses of the program's end: 198.18.0.2 and fd18::2, counted up at each change.
inline constexpr char kProgramNetworkV4[] = "198.18.0.0/16";
inline constexpr char kProgramNetworkV6[] = "fd18::/16";
inline constexpr int kProgramAddresses = 60'000;
Address ProgramAddressV4(int number);
Address ProgramAddressV6(int number);

// Binds a socket. Throws std::runtime_error.
void BindTo(int fd, const Address& address, int port);

}  // namespace tarvel_backend
