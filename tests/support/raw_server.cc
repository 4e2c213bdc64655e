#include "tests/support/raw_server.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace test_support {

namespace {

constexpr std::string_view kHeadEnd = "\r\n\r\n";

int PortOf(int fd) {
  sockaddr_in own{};  // A longer address of IPv6, cut off, has its port at the same place.
  socklen_t size = sizeof own;
  getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
  return ntohs(own.sin_port);
}

std::size_t BodySizeOf(const std::string& head) {
  constexpr std::string_view kName = "\r\nContent-Length:";
  const char* const found = strcasestr(head.c_str(), kName.data());
  return found == nullptr ? 0 : std::strtoul(found + kName.size(), nullptr, 10);
}

}  // namespace

ListeningSocket::ListeningSocket(const std::string& address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), "0", &hints, &found) != 0) throw std::runtime_error(address);
  fd_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool bound = bind(fd_, found->ai_addr, found->ai_addrlen) == 0;
  freeaddrinfo(found);
  if (!bound || listen(fd_, SOMAXCONN) != 0) throw std::runtime_error("not to be had: " + address);
  port_ = PortOf(fd_);
  const int on = 1;  // Accepted connections inherit it: small answers leave at once.
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

ListeningSocket::~ListeningSocket() { close(fd_); }

std::string UrlOf(std::string_view scheme, const std::string& address, int port,
                  std::string_view path) {
  const bool v6 = address.find(':') != std::string::npos;
  std::string url(scheme);
  url += "://" + (v6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
  return url.append(path);
}

RawConnection::RawConnection(int fd, int stop_fd) : fd_(fd), stop_fd_(stop_fd) {}

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
  close(std::exchange(fd_, -1));
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

void RawServer::AcceptUntilStopped() {
  std::array<pollfd, 2> watched{{{socket_.fd(), POLLIN, 0}, {stop_fd_, POLLIN, 0}}};
  while (poll(watched.data(), watched.size(), -1) < 0 || watched[1].revents == 0) {
    const int fd = accept4(socket_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    ++accepted_;
    conversations_.emplace_back([this, fd] {
      RawConnection connection(fd, stop_fd_);
      handler_(connection);
    });
  }
}

std::string HttpAnswer(const std::string& status, const std::string& body,
                       const std::string& headers) {
  return "HTTP/1.1 " + status + "\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

RawServer::Handler NeverAnswers() { return AnswersOnce(""); }

RawServer::Handler AnswerWith(std::string text) {
  return [text = std::move(text)](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send(text);
  };
}

RawServer::Handler AnswersOnce(std::string text) {
  return [text = std::move(text)](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send(text);
    connection.AwaitStop();
  };
}

}  // namespace test_support
