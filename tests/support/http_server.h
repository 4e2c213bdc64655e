#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/certificate_authority.h"

namespace test_support {

using Headers = std::vector<std::pair<std::string, std::string>>;

// A request as the server read it.
struct SeenRequest {
  // Of the first header of this name, in any case; empty without one.
  std::string header(std::string_view name) const;

  std::string method;
  std::string target;  // As sent: path and query, nothing decoded.
  std::string version;
  Headers headers;  // As sent, in order.
  std::string body;
  std::string sni;     // The name that TLS asked for; empty without one.
  int connection = 0;  // On which connection of the server it came; the first is 1.
};

struct ServerAnswer {
  int status = 200;
  Headers headers = {};  // Besides those that the server adds: Content-Length, Content-Type.
  std::string body = {};
};

// An HTTP/1.1 server on a loopback address, with TLS when it has a certificate.
//
// It keeps connections alive until the peer closes, serves each on a thread of its own, and
// compresses a body for those who accept that, if its handler says that it is text. Any verb goes
// to the handler of the path (the target up to its query); where none is set, the answer is a 200
// whose body repeats the request's.
//
// Threads: all from any thread. Handlers run on the connections' threads, several at once; a
// handler that blocks holds up the destructor, which else is prompt whatever the peers do.
// The process's way with SIGPIPE stays what it was.
class HttpServer {
 public:
  using Handler = std::function<ServerAnswer(const SeenRequest&)>;

  explicit HttpServer(const std::optional<ServerCertificate>& certificate = std::nullopt,
                      const std::string& address = "127.0.0.1");
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  int port() const;
  std::string url(std::string_view path) const;

  void Answer(const std::string& path, Handler handler);

  std::vector<SeenRequest> requests() const;  // All so far; each is there before its handler runs.
  int connections() const;                    // Accepted so far, failed handshakes included.
  void CloseConnections();                    // All that are open now.

 private:
  class Engine;

  const std::unique_ptr<Engine> engine_;
};

}  // namespace test_support
