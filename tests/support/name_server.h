#pragma once

#include <string>

#include "tests/support/program.h"

namespace test_support {

// A production name server on 127.0.0.1, port 53, that knows only what its options say. For a
// private network (see private_network.h).
class NameServer : public Program {
 public:
  // Options of dnsmasq, separated by blanks, such as "--host-record=good.example,192.0.2.1". Serves
  // when this returns.
  explicit NameServer(const std::string& options)
      : Program({"/bin/sh", "-c",
                 "exec /usr/sbin/dnsmasq --no-daemon --conf-file=/dev/null --no-resolv --no-hosts"
                 " --listen-address=127.0.0.1 --bind-interfaces " +
                     options}) {
    AwaitOutput("started");
  }
};

}  // namespace test_support
