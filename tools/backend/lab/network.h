#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tools/backend/lab/address.h"

namespace tarvel_backend {

// The wire between the servers, in this process's network, and the program, in a network of its
// own. It calls the program `ip`.
//
// Threads: the owner's. Ownership: owns nothing; the wire ends with either network.
class Network {
 public:
  // `process` is one in the program's network, and `network` a descriptor of it that outlives this.
  // All `servers` are reachable from there when this returns. The program has an IPv6 address only
  // when a server has one. Throws std::runtime_error, as Change.
  Network(pid_t process, int network, const std::vector<Address>& servers);

  // Gives the program's end its next address and takes the old one away. Connections of the old
  // one are neither closed nor reset: their packets get lost.
  void Change();

  // "198.18.0.2, fd18::2".
  std::string AddressesOfProgram() const;

 private:
  std::vector<Address> Addresses(int number) const;

  const int network_;  // The program's.
  const bool has_v6_;
  int number_ = 0;  // Of the program's address.
};

}  // namespace tarvel_backend
