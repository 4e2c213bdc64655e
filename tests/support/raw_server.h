#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace test_support {

// A TCP socket that listens on an address literal, on a port that the system picks. Throws when
// the address is not available.
class ListeningSocket {
 public:
  explicit ListeningSocket(const std::string& address);
  ~ListeningSocket();
  ListeningSocket(const ListeningSocket&) = delete;

  int fd() const { return fd_; }
  int port() const { return port_; }

 private:
  int fd_ = -1;
  int port_ = 0;
};

// Returns "http://127.0.0.1:80/path"; an IPv6 literal gets its brackets.
std::string UrlOf(std::string_view scheme, const std::string& address, int port,
                  std::string_view path);

// One accepted connection, used by a server's handler on the handler's thread. Every wait returns
// when the server ends.
class RawConnection {
 public:
  explicit RawConnection(int fd) : fd_(fd) {}

  // Returns the next request: its head, and as much of a body as Content-Length says. Returns what
  // has come of it when the peer closes or the server ends.
  std::string ReadRequest();

  // False when the peer is gone or the server ends. Raises no signal.
  bool Send(std::string_view bytes);

  // Makes the peer see a reset when the handler returns.
  void Reset() const;

  // True as soon as the peer has closed or the server ends, false when the limit has passed before
  // that. Without a limit it only ever returns true.
  bool AwaitStop(std::optional<std::chrono::milliseconds> limit = std::nullopt) const;

 private:
  bool Receive();

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

  explicit RawServer(Handler handler, const std::string& address = "127.0.0.1");
  ~RawServer();

  int port() const { return socket_.port(); }
  std::string url(std::string_view path) const { return UrlOf("http", address_, port(), path); }
  int connections() const { return accepted_; }  // So far, also those that are closed.

 private:
  void AcceptUntilStopped();
  void Converse(int fd);

  const Handler handler_;
  const std::string address_;
  const ListeningSocket socket_;
  std::atomic<int> accepted_{0};
  std::mutex mutex_;
  std::set<int> open_;                     // Guarded by mutex_: the descriptors of connections.
  std::list<std::jthread> conversations_;  // Touched by the accepting thread only, until it ended.
  std::jthread acceptor_;                  // Last: all that it uses exists before it starts.
};

// "HTTP/1.1 200 OK" with a length, the headers (each with its line end), and the body.
std::string HttpAnswer(const std::string& status, const std::string& body,
                       const std::string& headers = "");

// Ready-made handlers. Each reads one request first.

RawServer::Handler NeverAnswers();                 // Keeps the connection open.
RawServer::Handler AnswerWith(std::string text);   // Sends the text as it is, and closes.
RawServer::Handler AnswersOnce(std::string text);  // Sends it, and keeps the connection open.

}  // namespace test_support
