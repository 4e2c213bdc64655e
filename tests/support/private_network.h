#pragma once

#include <string>

namespace test_support {

// Moves this process into a network of its own, where only the loopback works, and where
// /etc/resolv.conf has the given text; nothing outside changes. Children inherit it.
//
// False when the system doesn't permit it, or has no /etc/resolv.conf. The process may have been
// changed in part then, so skip the test and end the process. Call it while the process has one
// thread, best in a child made for it: the system refuses several, and a sanitizer may start one.
[[nodiscard]] bool EnterPrivateNetwork(const std::string& resolv_conf_text);

}  // namespace test_support
