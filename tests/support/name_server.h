#pragma once

#include <string>
#include <vector>

#include "tests/support/program.h"

namespace test_support {

// A production name server on 127.0.0.1, port 53, that knows nothing but what it is told. For a
// private network (see private_network.h).
class NameServer {
 public:
  // Options of dnsmasq, such as "--host-record=good.example,192.0.2.1". Serves when this returns.
  explicit NameServer(const std::vector<std::string>& options);

  static bool IsInstalled();

 private:
  Program program_;
};

}  // namespace test_support
