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

// What a TLS listener shows: the right certificate, or the wrong one on request.
struct Certificates {
  Certificate right;
  Certificate wrong;
};

// One listener, which speaks HTTP, or HTTPS when it has certificates. It answers as the answers
// file says at the moment of a request, and writes a line for each to standard output.
//
// Threads: one that accepts, and a pool of kConnections for the connections; all of this from the
// owner's thread. Ownership: `certificates` outlives it.
class Backend {
 public:
  // As many are served at a time, kept alive or hanging; more have to wait.
  static constexpr std::size_t kConnections = 64;

  // Listens when this returns. `port` 0 for one that the system picks. Throws std::runtime_error
  // when the address can't be had.
  Backend(std::string answers_file, const Certificates* certificates, const std::string& address,
          int port);
  // Ends what is under way.
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
  // Waits on behalf of a connection until the time is over, the client has left or the backend
  // ends.
  void Wait(int connection, std::chrono::steady_clock::time_point end) const;

  const std::string answers_file_;
  const Certificates* const certificates_;
  const std::unique_ptr<httplib::Server> server_;
  std::string url_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> ended_{false};  // The accepting thread's work.
  std::thread listener_;            // Last: all that it uses exists before it starts.
};

}  // namespace tarvel_backend
