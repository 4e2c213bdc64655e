#pragma once

#include <cstdio>
#include <exception>
#include <string>

#include "tools/backend/lab/private_network.h"

namespace test_support {

// Moves this process into a private network where /etc/resolv.conf has the given contents.
//
// Returns false when the system doesn't permit it, or has no /etc/resolv.conf. Skip the test and
// end the process then. Call it while the process has one thread, best in a child made for it: a
// sanitizer may start a thread.
[[nodiscard]] inline bool EnterPrivateNetwork(const std::string& resolv_conf) {
  try {
    tarvel_backend::EnterPrivateNetwork({{"/etc/resolv.conf", resolv_conf}});
    return true;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return false;
  }
}

}  // namespace test_support
