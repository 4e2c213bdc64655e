#include "tools/backend/backend.h"

#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "tools/backend/client_socket.h"

namespace tarvel_backend {

namespace {

// Each connection holds one while it is kept alive or hangs.
constexpr std::size_t kThreads = 64;
constexpr std::chrono::milliseconds kHangStep{20};
constexpr char kJson[] = "application/json";

std::string AuthorityOf(const std::string& address, int port) {
  const bool is_v6 = address.find(':') != std::string::npos;
  return (is_v6 ? '[' + address + ']' : address) + ':' + std::to_string(port);
}

// Only this: two backends on one port would share its connections.
void ReuseAddress(int fd) {
  const int yes = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

}  // namespace

Backend::Backend(const AnswersFile& answers, const Certificates* certificates,
                 const std::string& address, int port)
    : answers_(answers),
      certificates_(certificates),
      server_(certificates == nullptr
                  ? std::make_unique<httplib::Server>()
                  : std::make_unique<httplib::SSLServer>(
                        [this](SSL_CTX& context) { return SetUpTLS(context); })) {
  Serve("/lbs/conf.jsp", &Backend::LBSAnswer);
  Serve("/httpdns/v2/s", &Backend::HttpDNSServers);
  Serve("/httpdns/v2/d", &Backend::HttpDNSHosts);
  server_->new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  server_->set_socket_options(ReuseAddress);
  server_->set_tcp_nodelay(true);
  const int bound = port == 0 ? server_->bind_to_any_port(address)
                              : (server_->bind_to_port(address, port) ? port : -1);
  if (bound < 0) throw std::runtime_error("can't listen on " + AuthorityOf(address, port));
  url_ = (certificates == nullptr ? "http://" : "https://") + AuthorityOf(address, bound);
  listener_ = std::thread([this] { server_->listen_after_bind(); });
}

Backend::~Backend() {
  stopping_ = true;
  while (!server_->is_running()) std::this_thread::sleep_for(kHangStep);  // Else the stop is lost.
  server_->stop();
  listener_.join();
}

bool Backend::SetUpTLS(SSL_CTX& context) {
  SSL_CTX_set_cert_cb(&context, ChooseCertificate, this);
  return true;
}

// At each handshake. Answers 1 for success.
int Backend::ChooseCertificate(SSL* ssl, void* backend) {
  const auto& self = *static_cast<Backend*>(backend);
  const char* const name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
  try {
    const bool is_wrong = self.answers_.HasWrongCertificate(name == nullptr ? "" : name);
    const Certificate& shown = is_wrong ? self.certificates_->wrong : self.certificates_->right;
    return SSL_use_certificate(ssl, shown.x509.get()) == 1 &&
                   SSL_use_PrivateKey(ssl, shown.key.get()) == 1
               ? 1
               : 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarvel-backend: %s\n", error.what());
    return 0;
  }
}

void Backend::Serve(const std::string& path, Body body) {
  const auto answer = [this, body](const httplib::Request& request, httplib::Response& response) {
    try {
      Answer(request, response, body);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "tarvel-backend: %s\n", error.what());
      response.status = 500;
    }
  };
  server_->Get(path, answer);
  server_->Post(path, answer);
}

void Backend::Answer(const httplib::Request& request, httplib::Response& response, Body body) {
  std::printf("%s %s %s\n", url_.c_str(), request.method.c_str(), request.target.c_str());
  std::fflush(stdout);

  const Fault fault = answers_.FaultOf(request.path);
  std::this_thread::sleep_for(fault.delay);
  const int fd =
      fault.hang || fault.reset ? FindClientSocket(request.remote_addr, request.remote_port) : -1;
  if (fault.hang) Hang(fd);
  if (fault.reset) ResetConnection(fd);

  std::string text = (this->*body)(request);
  if (text.empty()) {
    response.status = 404;  // The answers file knows none.
    return;
  }
  if (fault.malformed) text.resize(text.size() / 2);
  response.set_content(text, kJson);
  if (fault.status != 0) response.status = fault.status;
}

// Until the client gives up, or the backend ends.
void Backend::Hang(int fd) const {
  while (!stopping_ && !HasPeerLeft(fd)) std::this_thread::sleep_for(kHangStep);
}

std::string Backend::LBSAnswer(const httplib::Request&) const { return answers_.LBSAnswer(); }

std::string Backend::HttpDNSServers(const httplib::Request&) const {
  return answers_.HttpDNSServers();
}

std::string Backend::HttpDNSHosts(const httplib::Request& request) const {
  return answers_.HttpDNSHosts(request.get_param_value("domain"));
}

}  // namespace tarvel_backend
