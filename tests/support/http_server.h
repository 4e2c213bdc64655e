#pragma once

#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

#include "tests/support/raw_server.h"

namespace test_support {

// A request as the server read it.
struct SeenRequest {
  explicit SeenRequest(const std::string& text)
      : head(text.substr(0, text.find("\r\n\r\n") + 2)), body(text.substr(head.size() + 2)) {
    std::istringstream(head) >> method >> target;
  }

  // The value of the first header of this name, in upper or lower case; empty without one.
  std::string header(const std::string& name) const {
    const char* const found = strcasestr(head.c_str(), ("\r\n" + name + ":").c_str());
    if (found == nullptr) return {};
    const std::string value(found + name.size() + 3, std::strchr(found + 2, '\r'));
    return value.substr(std::min(value.find_first_not_of(' '), value.size()));
  }

  std::string head;  // Each of its lines ends in "\r\n".
  std::string body;
  std::string method;
  std::string target;  // As sent: path and query, nothing decoded.
};

struct ServerAnswer {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers = {};  // Besides Content-Length.
  std::string body = {};
};

// An HTTP/1.1 server on a loopback address.
//
// It keeps connections alive until the peer closes. Any verb goes to the handler of the path (the
// target up to its query). Without one the answer is a 200 whose body repeats the request's.
//
// Threads: call from any thread. Handlers run on the connections' threads, several at once. A
// handler that blocks holds up the destructor; peers can't.
class HttpServer {
 public:
  using Handler = std::function<ServerAnswer(const SeenRequest&)>;

  explicit HttpServer(const std::string& address = "127.0.0.1")
      : server_([this](RawConnection& connection) { Converse(connection); }, address) {}

  int port() const { return server_.port(); }
  std::string url(std::string_view path) const { return server_.url(path); }
  int connections() const { return server_.connections(); }  // Accepted so far.

  void Answer(const std::string& path, Handler handler) {
    const std::lock_guard lock(mutex_);
    handlers_[path] = std::move(handler);
  }
  // All so far; each is there before its handler runs.
  std::vector<SeenRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  void Converse(RawConnection& connection) {
    for (std::string text; !(text = connection.ReadRequest()).empty();) {
      const SeenRequest seen(text);
      std::unique_lock lock(mutex_);
      requests_.push_back(seen);
      const Handler handler = handlers_[seen.target.substr(0, seen.target.find('?'))];
      lock.unlock();
      const auto [status, headers, body] =
          handler ? handler(seen) : ServerAnswer{200, {}, seen.body};
      std::string lines;
      for (const auto& [name, value] : headers) lines += name + ": " + value + "\r\n";
      connection.Send(HttpAnswer(std::to_string(status) + " Said", body, lines));
    }
  }

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::map<std::string, Handler> handlers_;
  std::vector<SeenRequest> requests_;

  RawServer server_;  // Last: all that it uses exists before it starts.
};

}  // namespace test_support
