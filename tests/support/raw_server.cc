#include "tests/support/raw_server.h"

#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace test_support {

namespace {

constexpr std::string_view kHeadEnd = "\r\n\r\n";

int BoundSocket(const std::string& address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), "0", &hints, &found) != 0) return -1;
  const int fd = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool bound = fd >= 0 && bind(fd, found->ai_addr, found->ai_addrlen) == 0;
  freeaddrinfo(found);
  if (bound) return fd;
  if (fd >= 0) close(fd);
  return -1;
}

int PortOf(int fd) {
  sockaddr_storage own{};
  socklen_t size = sizeof own;
  std::array<char, 8> port{};
  getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
  getnameinfo(reinterpret_cast<sockaddr*>(&own), size, nullptr, 0, port.data(), port.size(),
              NI_NUMERICSERV);
  return std::atoi(port.data());
}

std::size_t BodySizeOf(const std::string& head) {
  constexpr std::string_view kName = "\r\nContent-Length:";
  const char* const found = strcasestr(head.c_str(), kName.data());
  return found == nullptr ? 0 : std::strtoul(found + kName.size(), nullptr, 10);
}

}  // namespace

ListeningSocket::ListeningSocket(const std::string& address) : fd_(BoundSocket(address)) {
  if (fd_ < 0 || listen(fd_, SOMAXCONN) != 0) {
    if (fd_ >= 0) close(fd_);
    throw std::runtime_error("cannot listen on " + address);
  }
  port_ = PortOf(fd_);
  const int on = 1;  // Accepted connections inherit it: small answers leave at once.
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

ListeningSocket::~ListeningSocket() {
  if (fd_ >= 0) close(fd_);
}

ListeningSocket::ListeningSocket(ListeningSocket&& other) noexcept
    : fd_(other.Release()), port_(other.port_) {}

int ListeningSocket::Release() { return std::exchange(fd_, -1); }

std::string UrlOf(std::string_view scheme, const std::string& address, int port,
                  std::string_view path) {
  const bool v6 = address.find(':') != std::string::npos;
  std::string url(scheme);
  url += "://" + (v6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
  return url.append(path);
}

RawConnection::RawConnection(int fd, int stop_fd) : stop_fd_(stop_fd), fd_(fd) {}

RawConnection::~RawConnection() {
  if (fd_ >= 0) close(fd_);
}

std::string RawConnection::ReadRequest() {
  std::size_t size = 0;
  while ((size = received_.find(kHeadEnd)) == std::string::npos) {
    if (!Receive()) return std::exchange(received_, {});
  }
  size += kHeadEnd.size();
  size += BodySizeOf(received_.substr(0, size));
  while (received_.size() < size && Receive()) continue;
  std::string request = received_.substr(0, size);
  received_.erase(0, size);
  return request;
}

bool RawConnection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!AwaitReady(POLLOUT)) return false;
    const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void RawConnection::Reset() {
  const linger at_once{1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  const std::lock_guard lock(mutex_);
  close(fd_);
  fd_ = -1;
}

bool RawConnection::AwaitStop(std::optional<std::chrono::milliseconds> limit) {
  std::array<pollfd, 2> watched{{{fd_, POLLRDHUP, 0}, {stop_fd_, POLLIN, 0}}};
  const int milliseconds = limit ? static_cast<int>(limit->count()) : -1;
  int ready = 0;
  while ((ready = poll(watched.data(), watched.size(), milliseconds)) < 0 && errno == EINTR) {
    continue;
  }
  return ready != 0;
}

void RawConnection::Shutdown() {
  const std::lock_guard lock(mutex_);
  if (fd_ >= 0) shutdown(fd_, SHUT_RDWR);
}

// False when the server ends.
bool RawConnection::AwaitReady(short events) {
  std::array<pollfd, 2> watched{{{fd_, events, 0}, {stop_fd_, POLLIN, 0}}};
  poll(watched.data(), watched.size(), -1);
  return watched[1].revents == 0;
}

bool RawConnection::Receive() {
  std::array<char, 16384> bytes;
  if (!AwaitReady(POLLIN)) return false;
  const ssize_t size = recv(fd_, bytes.data(), bytes.size(), 0);
  if (size > 0) received_.append(bytes.data(), static_cast<std::size_t>(size));
  return size > 0;
}

RawServer::RawServer(Handler handler, const std::string& address)
    : handler_(std::move(handler)),
      address_(address),
      socket_(address),
      stop_fd_(eventfd(0, EFD_CLOEXEC)),
      acceptor_([this] { AcceptUntilStopped(); }) {}

RawServer::~RawServer() {
  eventfd_write(stop_fd_, 1);
  acceptor_.join();
  conversations_.clear();
  close(stop_fd_);
}

std::string RawServer::url(std::string_view path) const {
  return UrlOf("http", address_, port(), path);
}

void RawServer::CloseConnections() {
  const std::lock_guard lock(mutex_);
  for (RawConnection& connection : open_) connection.Shutdown();
}

void RawServer::AcceptUntilStopped() {
  std::array<pollfd, 2> watched{{{socket_.fd(), POLLIN, 0}, {stop_fd_, POLLIN, 0}}};
  while (poll(watched.data(), watched.size(), -1) < 0 || watched[1].revents == 0) {
    const int fd = accept4(socket_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    const std::lock_guard lock(mutex_);
    RawConnection& connection = open_.emplace_back(fd, stop_fd_);
    ++accepted_;
    conversations_.emplace_back([this, &connection] { Serve(connection); });
  }
}

void RawServer::Serve(RawConnection& connection) {
  handler_(connection);
  const std::lock_guard lock(mutex_);
  open_.remove_if([&connection](const RawConnection& open) { return &open == &connection; });
}

RawServer::Handler NeverAnswers() {
  return [](RawConnection& connection) {
    connection.ReadRequest();
    connection.AwaitStop();
  };
}

RawServer::Handler ResetsInMidBody() {
  return [](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nthe beginning");
    connection.Reset();
  };
}

RawServer::Handler HalfStatusLine() { return AnswerWith("HTTP/1."); }

RawServer::Handler EndlessBody() {
  return [](RawConnection& connection) {
    connection.ReadRequest();
    const std::string block(65536, 'x');
    bool sent = connection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    while (sent) sent = connection.Send(block);
  };
}

RawServer::Handler EndlessHeaders() {
  return [](RawConnection& connection) {
    connection.ReadRequest();
    const std::string header = "X-Filler: " + std::string(1000, 'x') + "\r\n";
    bool sent = connection.Send("HTTP/1.1 200 OK\r\n");
    while (sent) sent = connection.Send(header);
  };
}

RawServer::Handler Drips(std::chrono::milliseconds interval) {
  return [interval](RawConnection& connection) {
    connection.ReadRequest();
    bool sent = connection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    while (sent && !connection.AwaitStop(interval)) sent = connection.Send("x");
  };
}

RawServer::Handler AnswerWith(std::string text) {
  return [text = std::move(text)](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send(text);
  };
}

RawServer::Handler KeepsAliveThenCloses(std::string body,
                                        std::optional<std::chrono::milliseconds> after) {
  return [body = std::move(body), after](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
                    "\r\n\r\n" + body);
    connection.AwaitStop(after);
  };
}

}  // namespace test_support
