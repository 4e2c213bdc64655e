#include "network/curl/close_on_exec.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

namespace WQBASE::network {
namespace {

bool IsMarked(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }
void Mark(int fd) { fcntl(fd, F_SETFD, FD_CLOEXEC); }

int DomainOf(int fd) {
  int domain = AF_UNSPEC;
  socklen_t length = sizeof domain;
  return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &length) == 0 ? domain : AF_UNSPEC;
}

// In ascending order.
std::vector<int> UnmarkedLocalSockets() {
  std::vector<int> sockets;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc/self/fd"), closedir);
  if (directory == nullptr) return sockets;
  // A directory stream of its own: no other thread reads it.
  while (const dirent* entry = readdir(directory.get())) {  // NOLINT(concurrency-mt-unsafe)
    if (entry->d_name[0] == '.') continue;
    const int fd = std::atoi(entry->d_name);
    if (!IsMarked(fd) && DomainOf(fd) == AF_UNIX) sockets.push_back(fd);
  }
  std::sort(sockets.begin(), sockets.end());
  return sockets;
}

int BytesIn(int fd) {
  int count = 0;
  return ioctl(fd, SIOCINQ, &count) == 0 ? count : 0;
}
int BytesOut(int fd) {
  int count = 0;
  return ioctl(fd, SIOCOUTQ, &count) == 0 ? count : 0;
}

// Whether something is on its way through the pair that `fd` is an end of.
bool IsBusy(int fd) { return BytesIn(fd) > 0 || BytesOut(fd) > 0; }

template <class Condition>
void KeepThose(std::vector<int>& sockets, Condition condition) {
  sockets.erase(std::remove_if(sockets.begin(), sockets.end(), std::not_fn(condition)),
                sockets.end());
}

// The other end of the pair of a lookup: it gets what is sent through this one. Nobody reads that
// there, since the lookup's thread only writes.
void KeepPartner(std::vector<int>& sockets, int socket) {
  constexpr char kBytes[3] = {};
  KeepThose(sockets, [](int fd) { return BytesIn(fd) == 0; });
  send(socket, kBytes, sizeof kBytes, MSG_DONTWAIT | MSG_NOSIGNAL);
  KeepThose(sockets, [](int fd) { return BytesIn(fd) == sizeof kBytes; });
}

}  // namespace

curl_socket_t OpenSocket(const curl_sockaddr& address) {
  return socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
}

// The pair is new, idle, busy while wake-ups are under way, and idle again after them.
CURLM* OpenMulti() {
  const std::vector<int> before = UnmarkedLocalSockets();
  CURLM* const multi = curl_multi_init();
  if (multi == nullptr) return nullptr;
  std::vector<int> sockets = UnmarkedLocalSockets();
  KeepThose(sockets, [&](int fd) {
    return !std::binary_search(before.begin(), before.end(), fd) && !IsBusy(fd);
  });
  curl_multi_wakeup(multi);
  KeepThose(sockets, IsBusy);
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);
  KeepThose(sockets, std::not_fn(IsBusy));
  std::for_each(sockets.begin(), sockets.end(), Mark);
  return multi;
}

void MarkWatchedSocket(curl_socket_t socket) {
  if (IsMarked(socket)) return;
  Mark(socket);
  if (DomainOf(socket) != AF_UNIX) return;
  std::vector<int> sockets = UnmarkedLocalSockets();
  KeepPartner(sockets, socket);
  std::for_each(sockets.begin(), sockets.end(), Mark);
}

}  // namespace WQBASE::network
