#include "network/curl/close_on_exec.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

namespace WQBASE::network {
namespace {

bool IsMarked(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }
void Mark(int fd) { fcntl(fd, F_SETFD, FD_CLOEXEC); }

bool IsUnmarkedLocalSocket(int fd) {
  if (IsMarked(fd)) return false;
  int domain = 0;
  socklen_t length = sizeof domain;
  return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &length) == 0 && domain == AF_UNIX;
}

std::vector<int> UnmarkedLocalSockets() {
  std::vector<int> sockets;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc/self/fd"), closedir);
  if (directory == nullptr) return sockets;
  // A directory stream of its own: no other thread reads it.
  while (const dirent* entry = readdir(directory.get())) {  // NOLINT(concurrency-mt-unsafe)
    const int fd = std::atoi(entry->d_name);  // The two names with dots give 0: the standard input.
    if (fd > 0 && IsUnmarkedLocalSocket(fd)) sockets.push_back(fd);
  }
  return sockets;
}

int CountOf(int fd, unsigned long request) {
  int count = 0;
  return ioctl(fd, request, &count) == 0 ? count : -1;
}

// Whether something is on its way through the pair that `fd` is an end of.
bool IsBusy(int fd) { return CountOf(fd, SIOCINQ) > 0 || CountOf(fd, SIOCOUTQ) > 0; }

ino_t InodeOf(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 ? status.st_ino : 0;
}

void DropIdle(std::vector<int>& sockets) {
  sockets.erase(std::remove_if(sockets.begin(), sockets.end(), [](int fd) { return !IsBusy(fd); }),
                sockets.end());
}

void DropBusy(std::vector<int>& sockets) {
  sockets.erase(std::remove_if(sockets.begin(), sockets.end(), IsBusy), sockets.end());
}

}  // namespace

curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address) {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

// The pair is idle, busy while a wake-up is under way, and idle again after it: no other pair of
// the process does that at our command.
void MarkWakeupPair(CURLM* multi) {
  std::vector<int> sockets = UnmarkedLocalSockets();
  DropBusy(sockets);
  curl_multi_wakeup(multi);
  DropIdle(sockets);
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);
  DropBusy(sockets);
  std::for_each(sockets.begin(), sockets.end(), Mark);
}

// The system numbers both ends of a pair in one go.
void MarkWatchedSocket(curl_socket_t socket) {
  if (!IsUnmarkedLocalSocket(socket)) return;
  const ino_t inode = InodeOf(socket);
  Mark(socket);
  for (const int other : UnmarkedLocalSockets()) {
    if (InodeOf(other) == inode + 1) Mark(other);
  }
}

}  // namespace WQBASE::network
