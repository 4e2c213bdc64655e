#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/raw_server.h"

namespace test_support {

using Headers = std::vector<std::pair<std::string, std::string>>;

// A request as the server read it.
struct SeenRequest {
  // The value of the first header of this name, in upper or lower case; empty without one.
  std::string header(const std::string& name) const;

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

  explicit HttpServer(const std::string& address = "127.0.0.1");

  int port() const { return server_.port(); }
  std::string url(std::string_view path) const { return server_.url(path); }

  void Answer(const std::string& path, Handler handler);

  std::vector<SeenRequest> requests() const;  // All so far; each is there before its handler runs.
  int connections() const { return server_.connections(); }  // Accepted so far.

 private:
  void Converse(RawConnection& connection);
  Handler Record(const SeenRequest& seen);  // Returns its handler, or null.

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::map<std::string, Handler> handlers_;
  std::vector<SeenRequest> requests_;

  RawServer server_;  // Last: all that it uses exists before it starts.
};

}  // namespace test_support
