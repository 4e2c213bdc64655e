#include "tools/backend/client_socket.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <system_error>

namespace tarvel_backend {

namespace {

// Until `visit` says that it has seen enough.
void ForEachDescriptor(const std::function<bool(int)>& visit) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    if (visit(std::atoi(entry.path().filename().c_str()))) return;
  }
}

bool IsStreamSocket(int fd) {
  int type = 0;
  socklen_t size = sizeof type;
  return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

Endpoint ToEndpoint(const sockaddr_storage& address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (address.ss_family == AF_INET6) {
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    return {text, ntohs(v6.sin6_port)};
  }
  const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
  inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
  return {text, ntohs(v4.sin_port)};
}

using Name = int (*)(int, sockaddr*, socklen_t*);

// Nothing of what isn't connected.
std::optional<Endpoint> EndOf(int fd, Name get_name) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (get_name(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return std::nullopt;
  return ToEndpoint(address);
}

}  // namespace

int FindConnection(const Endpoint& own, const Endpoint& peer) {
  int found = -1;
  ForEachDescriptor([&](int fd) {
    if (EndOf(fd, getpeername) != peer || EndOf(fd, getsockname) != own) return false;
    found = fd;
    return true;
  });
  return found;
}

void ResetConnection(int fd) {
  const sockaddr nobody{AF_UNSPEC, {}};
  // Fails only when the connection is closed.
  [[maybe_unused]] const int result = connect(fd, &nobody, sizeof nobody);
}

bool HasPeerLeft(int fd) {
  pollfd state{fd, POLLRDHUP, 0};
  return poll(&state, 1, 0) == 1;
}

void ShutDownConnections() {
  ForEachDescriptor([](int fd) {
    if (IsStreamSocket(fd) && EndOf(fd, getpeername)) shutdown(fd, SHUT_RDWR);
    return false;
  });
}

void SetSilence(bool silent) {
  sock_filter drop_all[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
  const sock_fprog program{1, drop_all};
  const int unused = 0;
  ForEachDescriptor([&](int fd) {
    if (!IsStreamSocket(fd)) return false;
    if (silent) {
      setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
    } else {
      setsockopt(fd, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused);
    }
    return false;
  });
}

}  // namespace tarvel_backend
