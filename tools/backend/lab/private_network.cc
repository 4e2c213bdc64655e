#include "tools/backend/lab/private_network.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace tarvel_backend {

namespace {

// Covered for a moment by the file system that holds the replaced files. It exists everywhere.
constexpr char kCoveredDirectory[] = "/tmp";

constexpr char kHowToPermit[] =
    "A private network needs root or user namespaces. The system's administrator permits them with "
    "sysctl: user.max_user_namespaces above 0, kernel.unprivileged_userns_clone=1 (Debian), "
    "kernel.apparmor_restrict_unprivileged_userns=0 (Ubuntu). Root of a container needs "
    "CAP_SYS_ADMIN and CAP_NET_ADMIN. The kernel refuses";

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream file(path);
  if (!(file << contents) || !file.flush()) ThrowSystemError("can't write " + path);
}

void BecomeRootOfNamespace(int namespaces) {
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(namespaces | CLONE_NEWUSER) != 0) ThrowSystemError(kHowToPermit);
  WriteFile("/proc/self/setgroups", "deny");
  WriteFile("/proc/self/uid_map", "0 " + user + " 1\n");
  WriteFile("/proc/self/gid_map", "0 " + group + " 1\n");
}

void StartLoopback() {
  const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  request.ifr_name[0] = 'l';
  request.ifr_name[1] = 'o';
  request.ifr_flags = IFF_UP;
  const bool started = any >= 0 && ioctl(any, SIOCSIFFLAGS, &request) == 0;
  if (any >= 0) close(any);
  if (!started) ThrowSystemError(kHowToPermit);
}

// The files live in memory, so a full disk does no harm, and nothing stays when the last process
// of the namespace has ended.
void ReplaceFiles(const std::vector<ReplacedFile>& files) {
  if (mount("tarvel-backend", kCoveredDirectory, "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) {
    ThrowSystemError(kHowToPermit);
  }
  int number = 0;
  for (const auto& [path, contents] : files) {
    const std::string file = std::string(kCoveredDirectory) + '/' + std::to_string(++number);
    WriteFile(file, contents);
    if (mount(file.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      ThrowSystemError("can't replace " + path);
    }
  }
  if (umount2(kCoveredDirectory, MNT_DETACH) != 0) {
    ThrowSystemError(std::string("can't uncover ") + kCoveredDirectory);
  }
}

}  // namespace

void ThrowSystemError(const std::string& sentence) {
  throw std::runtime_error(sentence + ": " + std::generic_category().message(errno));
}

void EnterPrivateNetwork(const std::vector<ReplacedFile>& files) {
  constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWNS;
  if (unshare(kNamespaces) != 0) BecomeRootOfNamespace(kNamespaces);
  // Otherwise our mounts would appear in the system's namespace.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    ThrowSystemError(kHowToPermit);
  }
  StartLoopback();
  ReplaceFiles(files);
}

}  // namespace tarvel_backend
