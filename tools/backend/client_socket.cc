#include "tools/backend/client_socket.h"

#include <linux/filter.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace tarvel_backend {

namespace {

// Stops as soon as `visit` returns true.
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

using Name = int (*)(int, sockaddr*, socklen_t*);

// Returns nullopt for a descriptor that is not connected. cpp-httplib reads its addresses in the
// same way, so both have the same form.
std::optional<Endpoint> EndOf(int fd, Name get_name) {
  sockaddr_storage storage{};
  auto* const address = reinterpret_cast<sockaddr*>(&storage);
  socklen_t size = sizeof storage;
  char host[NI_MAXHOST], port[NI_MAXSERV];
  if (get_name(fd, address, &size) != 0 ||
      getnameinfo(address, size, host, sizeof host, port, sizeof port,
                  NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return std::nullopt;
  }
  return Endpoint{host, std::atoi(port)};
}

// Returns whether the socket is the listener, or a connection that it has accepted.
bool BelongsTo(const Endpoint& listener, int fd) {
  const auto own = IsStreamSocket(fd) ? EndOf(fd, getsockname) : std::nullopt;
  const bool accepts_all = listener.address == "0.0.0.0" || listener.address == "::";
  return own && own->port == listener.port && (accepts_all || own->address == listener.address);
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

Endpoint OwnEnd(int fd) {
  const auto end = EndOf(fd, getsockname);
  if (!end) throw std::runtime_error("a socket has no address");
  return *end;
}

void ShutDownConnections(const Endpoint& listener) {
  ForEachDescriptor([&](int fd) {
    if (BelongsTo(listener, fd) && EndOf(fd, getpeername)) shutdown(fd, SHUT_RDWR);
    return false;
  });
}

void SetSilence(const Endpoint& listener, bool silent) {
  sock_filter drop_all[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
  const sock_fprog program{1, drop_all};
  const int unused = 0;
  ForEachDescriptor([&](int fd) {
    if (!BelongsTo(listener, fd)) return false;
    if (silent) {
      setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
    } else {
      setsockopt(fd, SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused);
    }
    return false;
  });
}

}  // namespace tarvel_backend
