#include "tests/support/private_network.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "tests/support/temp_directory.h"

namespace test_support {

namespace {

constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWNS;

// The way of those who are not root.
bool EnterAsRootOfUserNamespace() {
  const auto user = std::to_string(geteuid()), group = std::to_string(getegid());
  if (unshare(kNamespaces | CLONE_NEWUSER) != 0) return false;
  WriteFile("/proc/self/setgroups", "deny");
  WriteFile("/proc/self/uid_map", "0 " + user + " 1\n");
  WriteFile("/proc/self/gid_map", "0 " + group + " 1\n");
  return geteuid() == 0 && getegid() == 0;
}

bool BringLoopbackUp() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  bool up = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  up = up && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  close(fd);
  return up;
}

bool KeepMountsPrivate() { return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0; }

// The file may go once it is mounted: the mount keeps its content.
bool ReplaceResolvConf(const std::string& text) {
  std::array<char, PATH_MAX> target;  // /etc/resolv.conf is often a link.
  if (realpath("/etc/resolv.conf", target.data()) == nullptr) return false;
  const TempDirectory directory;
  const std::string file = directory / "resolv.conf";
  WriteFile(file, text);
  return mount(file.c_str(), target.data(), nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace

bool EnterPrivateNetwork(const std::string& resolv_conf_text) {
  return (unshare(kNamespaces) == 0 || EnterAsRootOfUserNamespace()) && KeepMountsPrivate() &&
         BringLoopbackUp() && ReplaceResolvConf(resolv_conf_text);
}

}  // namespace test_support
