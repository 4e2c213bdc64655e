#include "tests/support/private_network.h"

#include <sched.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/temp_directory.h"

namespace test_support {

namespace {

constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWNS;

// What those do who are not root.
bool EnterAsRootOfUserNamespace() {
  const auto user = std::to_string(geteuid()), group = std::to_string(getegid());
  if (unshare(kNamespaces | CLONE_NEWUSER) != 0) return false;
  WriteFile("/proc/self/setgroups", "deny");
  WriteFile("/proc/self/uid_map", "0 " + user + " 1\n");
  WriteFile("/proc/self/gid_map", "0 " + group + " 1\n");
  return geteuid() == 0 && getegid() == 0;
}

}  // namespace

bool EnterPrivateNetwork(const std::string& resolv_conf_text) {
  if (unshare(kNamespaces) != 0 && !EnterAsRootOfUserNamespace()) return false;
  const TempDirectory directory;  // A mounted file outlives its removal.
  const std::string file = directory / "resolv.conf";
  WriteFile(file, resolv_conf_text);
  const std::string commands =
      "PATH=$PATH:/usr/sbin && mount --make-rprivate / && ip link set lo up"
      " && mount --bind " +
      file + " /etc/resolv.conf";
  return std::system(commands.c_str()) == 0;
}

}  // namespace test_support
