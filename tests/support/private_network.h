#pragma once

#include <sched.h>

#include "tests/support/temp_directory.h"

namespace test_support {

// Moves this process into a network of its own, where only the loopback works, and where
// /etc/resolv.conf has the given text; nothing outside changes. Children inherit it.
//
// False when the system doesn't permit it, or has no /etc/resolv.conf. The process may have been
// changed in part then, so skip the test and end the process. Call it while the process has one
// thread, best in a child made for it: the system refuses several, and a sanitizer may start one.
[[nodiscard]] inline bool EnterPrivateNetwork(const std::string& resolv_conf_text) {
  constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWNS;
  if (unshare(kNamespaces) != 0) {  // Who isn't root becomes that of a namespace.
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (unshare(kNamespaces | CLONE_NEWUSER) != 0) return false;
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + user + " 1\n");
    WriteFile("/proc/self/gid_map", "0 " + group + " 1\n");
  }
  const TempDirectory directory;  // A mounted file outlives its removal.
  const std::string file = directory / "resolv.conf";
  WriteFile(file, resolv_conf_text);
  const std::string commands =
      "PATH=$PATH:/usr/sbin && mount --make-rprivate / && "
      "ip link set lo up && mount --bind " +
      file + " /etc/resolv.conf";
  return std::system(commands.c_str()) == 0;
}

}  // namespace test_support
