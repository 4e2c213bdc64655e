#pragma once

#include <openssl/ssl.h>

#include <atomic>
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

// One listener, which speaks HTTP, or HTTPS when it has certificates. It writes a line for each
// request to standard output.
//
// Threads: one that accepts, and a pool for the connections; all of this from the owner's thread.
// Ownership: `answers` and `certificates` outlive it.
class Backend {
 public:
  // Listens when this returns. `port` 0 for one that the system picks. Throws std::runtime_error
  // when the address can't be had.
  Backend(const AnswersFile& answers, const Certificates* certificates, const std::string& address,
          int port);
  ~Backend();
  Backend(const Backend&) = delete;
  Backend& operator=(const Backend&) = delete;

  // "http://127.0.0.1:8080".
  const std::string& url() const { return url_; }

 private:
  using Body = std::string (Backend::*)(const httplib::Request&) const;

  static int ChooseCertificate(SSL* ssl, void* backend);
  bool SetUpTLS(SSL_CTX& context);
  void Serve(const std::string& path, Body body);
  void Answer(const httplib::Request& request, httplib::Response& response, Body body);
  void Hang(int fd) const;

  std::string LBSAnswer(const httplib::Request& request) const;
  std::string HttpDNSServers(const httplib::Request& request) const;
  std::string HttpDNSHosts(const httplib::Request& request) const;

  const AnswersFile& answers_;
  const Certificates* const certificates_;
  const std::unique_ptr<httplib::Server> server_;
  std::string url_;
  std::atomic<bool> stopping_{false};
  std::thread listener_;  // Last: all that it uses exists before it starts.
};

}  // namespace tarvel_backend
