#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "tools/backend/answers_file.h"
#include "tools/backend/certificate.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace tarvel_backend {

// The two certificates of a TLS listener; the answers file chooses one per connection.
struct Certificates {
  Certificate right;
  Certificate wrong;
};

// One listener, for HTTP, or for HTTPS when it has certificates. It reads the answers file for each
// request, and prints a line for each to standard output.
//
// Threads: created and destroyed on the owner's; accepts on a thread of its own and serves on a
// pool of kConnections. Ownership: `certificates` outlives it.
class Backend {
 public:
  // How many connections are served at a time, idle and hanging ones included. Others wait.
  static constexpr std::size_t kConnections = 64;

  // Listens when it returns. With port 0 the system picks a port. Throws std::runtime_error when
  // the address is not available.
  Backend(std::string answers_file, const Certificates* certificates, const std::string& address,
          int port);
  // Ends all connections.
  ~Backend();
  Backend(const Backend&) = delete;
  Backend& operator=(const Backend&) = delete;

  // "http://127.0.0.1:8080".
  const std::string& url() const { return url_; }

 private:
  static int ChooseCertificate(SSL* ssl, void* backend);
  bool SetUpTLS(SSL_CTX& context);
  void ServeAllPaths();
  void Answer(const httplib::Request& request, httplib::Response& response) const;
  // Returns at `end`, when the client has closed the connection, or when the backend ends.
  void Wait(int connection, std::chrono::steady_clock::time_point end) const;

  const std::string answers_file_;
  const Certificates* const certificates_;
  const std::unique_ptr<httplib::Server> server_;
  std::string url_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> ended_{false};  // The accepting thread has ended.
  std::thread listener_;            // Last: all that it uses exists before it starts.
};

}  // namespace tarvel_backend
