#pragma once

#include <strings.h>

#include <map>
#include <sstream>
#include <vector>

#include "tests/support/raw_server.h"

namespace test_support {

using Headers = std::vector<std::pair<std::string, std::string>>;

// A request as the server read it.
struct SeenRequest {
  explicit SeenRequest(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    in >> method >> target;
    std::getline(in, line);
    while (std::getline(in, line) && line != "\r") {
      std::istringstream header(line);
      auto& [name, value] = headers.emplace_back();
      std::getline(header, name, ':');
      std::getline(header >> std::ws, value, '\r');
    }
    body.assign(std::istreambuf_iterator<char>(in), {});
  }

  // The value of the first header of this name, in upper or lower case; empty without one.
  std::string header(const std::string& name) const {
    for (const auto& [own_name, value] : headers) {
      if (strcasecmp(own_name.c_str(), name.c_str()) == 0) return value;
    }
    return {};
  }

  std::string method;
  std::string target;  // As sent: path and query, nothing decoded.
  Headers headers;     // As sent, in order.
  std::string body;
};

struct ServerAnswer {
  int status = 200;
  Headers headers = {};  // Besides Content-Length.
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
      const Handler handler = Record(seen);
      const auto [status, headers, body] =
          handler ? handler(seen) : ServerAnswer{200, {}, seen.body};
      std::string lines;
      for (const auto& [name, value] : headers) lines += name + ": " + value + "\r\n";
      connection.Send(HttpAnswer(std::to_string(status) + " Said", body, lines));
    }
  }
  Handler Record(const SeenRequest& seen) {  // Returns its handler, or null.
    const std::lock_guard lock(mutex_);
    requests_.push_back(seen);
    return handlers_[seen.target.substr(0, seen.target.find('?'))];
  }

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::map<std::string, Handler> handlers_;
  std::vector<SeenRequest> requests_;

  RawServer server_;  // Last: all that it uses exists before it starts.
};

}  // namespace test_support
