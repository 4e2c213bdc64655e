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
#include "tools/backend/client_socket.h"
#include "tools/backend/ended_request.h"

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

// What a backend needs from its owner. Both are called on any of the backend's threads.
struct BackendOwner {
  std::function<Answers()> get_answers;  // For each request. Throws when there are none.
  std::function<void(const EndedRequest&)> log_request;
};

// One listener, for HTTP, or for HTTPS when it has certificates.
//
// Threads: created and destroyed on the owner's; accepts on a thread of its own and serves on up
// to kConnections more. Ownership: `certificates` outlives it.
class Backend {
 public:
  // How many connections are served at a time, idle and hanging ones included. Others wait.
  static constexpr std::size_t kConnections = 64;

  // Listens when it returns. With port 0 the system picks a port. Throws std::runtime_error when
  // the address is not available.
  Backend(BackendOwner owner, const Certificates* certificates, const std::string& address,
          int port);
  // Ends all connections.
  ~Backend();
  Backend(const Backend&) = delete;
  Backend& operator=(const Backend&) = delete;

  // "http://127.0.0.1:8080".
  const std::string& url() const { return url_; }

  // See client_socket.h.
  void SetSilence(bool silent) const { tarvel_backend::SetSilence(own_, silent); }

 private:
  static int ChooseCertificate(SSL* ssl, void* backend);
  bool SetUpTLS(SSL_CTX& context);
  void ServeAllPaths();
  void LogRequest(const httplib::Request& request, const httplib::Response& response) const;
  void Answer(const httplib::Request& request, httplib::Response& response) const;
  // Returns at `end`, when the client has closed the connection, or when the backend ends.
  void Wait(int connection, std::chrono::steady_clock::time_point end) const;

  const BackendOwner owner_;
  const Certificates* const certificates_;
  const std::unique_ptr<httplib::Server> server_;
  std::string url_;
  Endpoint own_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> ended_{false};  // The accepting thread has ended.
  std::thread listener_;            // Last: all that it uses exists before it starts.
};

}  // namespace tarvel_backend
