#include "tests/support/raw_server.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
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

std::size_t BodySizeOf(const std::string& head) {
  constexpr std::string_view kName = "\r\nContent-Length:";
  const char* const found = strcasestr(head.c_str(), kName.data());
  return found == nullptr ? 0 : std::strtoul(found + kName.size(), nullptr, 10);
}

}  // namespace

ListeningSocket::ListeningSocket(const std::string& address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), "0", &hints, &found) != 0) throw std::runtime_error(address);
  fd_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool bound = bind(fd_, found->ai_addr, found->ai_addrlen) == 0;
  freeaddrinfo(found);
  if (!bound || listen(fd_, SOMAXCONN) != 0) throw std::runtime_error("not available: " + address);
  sockaddr_in own{};  // A longer address of IPv6, cut off, has its port at the same place.
  socklen_t size = sizeof own;
  getsockname(fd_, reinterpret_cast<sockaddr*>(&own), &size);
  port_ = ntohs(own.sin_port);
  const int on = 1;  // Accepted connections inherit it: small answers leave at once.
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

ListeningSocket::~ListeningSocket() { close(fd_); }

std::string UrlOf(std::string_view scheme, const std::string& address, int port,
                  std::string_view path) {
  const bool v6 = address.find(':') != std::string::npos;
  return std::string(scheme).append("://") + (v6 ? "[" + address + "]" : address) + ":" +
         std::to_string(port).append(path);
}

std::string RawConnection::ReadRequest() {
  constexpr std::string_view kHeadEnd = "\r\n\r\n";
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

bool RawConnection::Receive() {
  std::array<char, 16384> bytes;
  const ssize_t size = recv(fd_, bytes.data(), bytes.size(), 0);
  if (size > 0) received_.append(bytes.data(), static_cast<std::size_t>(size));
  return size > 0;
}

bool RawConnection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void RawConnection::Reset() const {
  const linger at_once{1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

bool RawConnection::AwaitStop(std::optional<std::chrono::milliseconds> limit) const {
  pollfd watched{fd_, POLLRDHUP, 0};
  return poll(&watched, 1, limit ? static_cast<int>(limit->count()) : -1) != 0;
}

RawServer::RawServer(Handler handler, const std::string& address)
    : handler_(std::move(handler)),
      address_(address),
      socket_(address),
      acceptor_([this] { AcceptUntilStopped(); }) {}

// A shutdown wakes those who wait for a socket. It must not meet a descriptor that is closed.
RawServer::~RawServer() {
  shutdown(socket_.fd(), SHUT_RDWR);
  acceptor_.join();
  {
    const std::lock_guard lock(mutex_);
    for (const int fd : open_) shutdown(fd, SHUT_RDWR);
  }
  conversations_.clear();
}

// Until accept() fails as it does after a shutdown.
void RawServer::AcceptUntilStopped() {
  for (int fd = 0; fd >= 0 || errno != EINVAL;) {
    fd = accept4(socket_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    ++accepted_;
    const std::lock_guard lock(mutex_);
    open_.insert(fd);
    conversations_.emplace_back([this, fd] { Converse(fd); });
  }
}

void RawServer::Converse(int fd) {
  RawConnection connection(fd);
  handler_(connection);
  const std::lock_guard lock(mutex_);
  open_.erase(fd);
  close(fd);
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
  return [answer = AnswerWith(std::move(text))](RawConnection& connection) {
    answer(connection);
    connection.AwaitStop();
  };
}

}  // namespace test_support
