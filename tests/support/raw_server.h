#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace test_support {

// A TCP socket that listens on an address literal, on a port that the system picks. Throws when
// the address is not available.
class ListeningSocket {
 public:
  explicit ListeningSocket(std::string address) : address_(std::move(address)) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const bool listens = getaddrinfo(address_.c_str(), "0", &hints, &found) == 0 &&
                         (fd_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0)) >= 0 &&
                         bind(fd_, found->ai_addr, found->ai_addrlen) == 0 &&
                         listen(fd_, SOMAXCONN) == 0;
    freeaddrinfo(found);
    if (!listens) throw std::runtime_error("not available: " + address_);
  }
  ~ListeningSocket() { close(fd_); }
  ListeningSocket(const ListeningSocket&) = delete;

  int fd() const { return fd_; }
  int port() const {
    sockaddr_in own{};  // A longer address of IPv6, cut off, has its port at the same place.
    socklen_t size = sizeof own;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
  }
  // Returns "http://127.0.0.1:80/path"; an IPv6 literal gets its brackets.
  std::string url(std::string_view path, std::string_view scheme = "http") const {
    const bool v6 = address_.find(':') != std::string::npos;
    return std::string(scheme).append("://") + (v6 ? "[" + address_ + "]" : address_) + ":" +
           std::to_string(port()).append(path);
  }

 private:
  const std::string address_;
  int fd_ = -1;
};

// One accepted connection, used by a server's handler on the handler's thread. Every wait returns
// when the server ends.
class RawConnection {
 public:
  explicit RawConnection(int fd) : fd_(fd) {}

  // Returns the next request: its head, and as much of a body as Content-Length says. Empty when
  // the peer closes or the server ends before it is complete.
  std::string ReadRequest() {
    constexpr std::string_view kHeadEnd = "\r\n\r\n", kLength = "\r\nContent-Length:";
    char bytes[16384];
    ssize_t count = 0;
    do {
      received_.append(bytes, static_cast<std::size_t>(count));
      std::size_t size = received_.find(kHeadEnd);
      if (size == std::string::npos) continue;
      size += kHeadEnd.size();
      const std::string head = received_.substr(0, size);
      const char* const length = strcasestr(head.c_str(), kLength.data());
      if (length != nullptr) size += std::strtoul(length + kLength.size(), nullptr, 10);
      if (received_.size() < size) continue;
      const std::string rest = received_.substr(size);
      received_.resize(size);
      return std::exchange(received_, rest);
    } while ((count = recv(fd_, bytes, sizeof bytes, 0)) > 0);
    return "";
  }

  // False when the peer is gone or the server ends. Raises no signal.
  bool Send(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent < 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }

  // Makes the peer see a reset when the handler returns.
  void Reset() const {
    const linger at_once{1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  }

  // True as soon as the peer has closed or the server ends, false when the limit has passed before
  // that. Without a limit it only ever returns true.
  bool AwaitStop(std::chrono::milliseconds limit = std::chrono::milliseconds(-1)) const {
    pollfd watched{fd_, POLLRDHUP, 0};
    return poll(&watched, 1, static_cast<int>(limit.count())) != 0;
  }

 private:
  const int fd_;          // Owned by the server.
  std::string received_;  // Read from the socket, and not yet part of a request.
};

// A server that speaks no protocol by itself: each connection is handed to a function on a thread
// of its own, and closed when that returns (unread input makes it a reset).
//
// The destructor ends every wait of the handlers and joins them.
class RawServer {
 public:
  using Handler = std::function<void(RawConnection&)>;

  explicit RawServer(Handler handler, const std::string& address = "127.0.0.1")
      : handler_(std::move(handler)), socket_(address), acceptor_([this] { Accept(); }) {}
  // A shutdown wakes those who wait for a socket. It must not meet a descriptor that is closed.
  ~RawServer() {
    shutdown(socket_.fd(), SHUT_RDWR);
    acceptor_.join();
    {
      const std::lock_guard lock(mutex_);
      for (const int fd : open_) shutdown(fd, SHUT_RDWR);
    }
    conversations_.clear();
  }

  int port() const { return socket_.port(); }
  std::string url(std::string_view path) const { return socket_.url(path); }
  int connections() const { return accepted_; }  // So far, also those that are closed.

 private:
  // A thread keeps its stack until it is joined, and 32 bits have no room for thousands of them.
  struct Conversation {
    std::atomic<bool> ended{false};
    std::jthread thread;  // Last: `ended` outlives it.
  };

  // Until accept() fails as it does after a shutdown.
  void Accept() {
    for (int fd = 0; fd >= 0 || errno != EINVAL;) {
      fd = accept4(socket_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      ++accepted_;
      conversations_.remove_if([](const Conversation& one) { return one.ended.load(); });
      const std::lock_guard lock(mutex_);
      open_.insert(fd);
      Conversation& conversation = conversations_.emplace_back();
      conversation.thread = std::jthread([this, fd, &conversation] {
        Converse(fd);
        conversation.ended = true;
      });
    }
  }

  void Converse(int fd) {
    RawConnection connection(fd);
    handler_(connection);
    const std::lock_guard lock(mutex_);
    open_.erase(fd);
    close(fd);
  }

  const Handler handler_;
  const ListeningSocket socket_;
  std::atomic<int> accepted_{0};
  std::mutex mutex_;
  std::set<int> open_;                     // Guarded by mutex_: the descriptors of connections.
  std::list<Conversation> conversations_;  // Touched by the accepting thread only, until it ended.
  std::jthread acceptor_;                  // Last: all that it uses exists before it starts.
};

// "HTTP/1.1 200 OK" with a length, the headers (each with its line end), and the body.
inline std::string HttpAnswer(const std::string& status, const std::string& body,
                              const std::string& headers = "") {
  return "HTTP/1.1 " + status + "\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// Ready-made handlers. Each reads one request first.

// Sends the text as it is, and closes.
inline RawServer::Handler AnswerWith(const std::string& text) {
  return [text](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send(text);
  };
}

// Keeps the connection open.
inline RawServer::Handler NeverAnswers() {
  return [](RawConnection& connection) {
    connection.ReadRequest();
    connection.AwaitStop();
  };
}

}  // namespace test_support
