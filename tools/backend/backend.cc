#include "tools/backend/backend.h"

#include <httplib.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tools/backend/connection_threads.h"

namespace tarvel_backend {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPoll{20};  // Between two checks whether to go on.
constexpr int kNotFound = 404;
constexpr int kServerError = 500;

std::string AuthorityOf(const std::string& address, int port) {
  const bool is_v6 = address.find(':') != std::string::npos;
  return (is_v6 ? '[' + address + ']' : address) + ':' + std::to_string(port);
}

// The part of an EndedRequest that only the handler knows. A thread serves one request at a time,
// from its handler to its line in the log. Requests that cpp-httplib refuses have no handler.
struct Served {
  std::optional<Clock::time_point> begin = {};
  Fault fault = {};
  std::string outcome = {};  // Empty: the status.
};
thread_local Served served;

// Not SO_REUSEPORT too, which is the default here: two backends on one port would share its
// connections.
void ReuseAddress(int fd) {
  const int yes = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

std::optional<std::string> BodyFor(const httplib::Request& request, const Answers& answers) {
  if (request.path == "/lbs/conf.jsp") return answers.LBSAnswer();
  if (request.path == "/httpdns/v2/s") return answers.HttpDNSServers();
  if (request.path == "/httpdns/v2/d") {
    return answers.HttpDNSHosts(request.get_param_value("domain"));
  }
  return std::nullopt;
}

}  // namespace

Backend::Backend(BackendOwner owner, const Certificates* certificates, const std::string& address,
                 int port)
    : owner_(std::move(owner)),
      certificates_(certificates),
      server_(certificates == nullptr
                  ? std::make_unique<httplib::Server>()
                  : std::make_unique<httplib::SSLServer>(
                        [this](SSL_CTX& context) { return SetUpTLS(context); })) {
  ServeAllPaths();
  server_->new_task_queue = [] { return new ConnectionThreads(kConnections); };
  int listening = -1;
  server_->set_socket_options([&listening](int fd) {
    listening = fd;  // The last one is bound.
    ReuseAddress(fd);
  });
  server_->set_tcp_nodelay(true);
  errno = 0;
  const int bound = port == 0 ? server_->bind_to_any_port(address)
                              : (server_->bind_to_port(address, port) ? port : -1);
  if (bound < 0) {
    throw std::runtime_error(
        "can't listen on " + AuthorityOf(address, port) + ": " +
        (errno == 0 ? "there is no such address" : std::generic_category().message(errno)));
  }
  own_ = OwnEnd(listening);
  url_ = (certificates == nullptr ? "http://" : "https://") + AuthorityOf(address, bound);
  listener_ = std::thread([this] {
    server_->listen_after_bind();
    ended_ = true;
  });
}

Backend::~Backend() {
  stopping_ = true;
  // cpp-httplib ignores a stop before it listens.
  while (!server_->is_running() && !ended_) std::this_thread::sleep_for(kPoll);
  server_->stop();
  while (!ended_) {  // A last connection may be accepted meanwhile.
    ShutDownConnections(own_);
    std::this_thread::sleep_for(kPoll);
  }
  listener_.join();
}

bool Backend::SetUpTLS(SSL_CTX& context) {
  SSL_CTX_set_cert_cb(&context, ChooseCertificate, this);
  // A resumed session would show no certificate at all.
  SSL_CTX_set_options(&context, SSL_OP_NO_TICKET);
  SSL_CTX_set_num_tickets(&context, 0);
  SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_OFF);
  return true;
}

// Called in each handshake. Returns 1 for success.
int Backend::ChooseCertificate(SSL* ssl, void* backend) {
  const auto& self = *static_cast<Backend*>(backend);
  const char* const name = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
  try {
    const Answers answers = self.owner_.get_answers();
    const bool is_wrong = answers.HasWrongCertificate(name == nullptr ? "" : name);
    const Certificate& shown = is_wrong ? self.certificates_->wrong : self.certificates_->right;
    const bool is_set = SSL_use_certificate(ssl, shown.x509.get()) == 1 &&
                        SSL_use_PrivateKey(ssl, shown.key.get()) == 1;
    return is_set ? 1 : 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarvel-backend: %s\n", error.what());
    return 0;
  }
}

void Backend::ServeAllPaths() {
  const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
    served = {Clock::now()};
    try {
      Answer(request, response);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "tarvel-backend: %s\n", error.what());
      response.status = kServerError;
    }
  };
  server_->Get(".*", answer);  // And HEAD.
  server_->Post(".*", answer);
  server_->Put(".*", answer);
  server_->Delete(".*", answer);
  server_->set_logger([this](const httplib::Request& request, const httplib::Response& response) {
    LogRequest(request, response);
  });
}

void Backend::LogRequest(const httplib::Request& request, const httplib::Response& response) const {
  const auto [begin, fault, outcome] = std::exchange(served, {});
  const auto now = Clock::now();
  owner_.log_request(
      {request.remote_addr, request.method, request.target,
       outcome.empty() ? std::to_string(response.status) : outcome, fault,
       std::chrono::duration_cast<std::chrono::milliseconds>(now - begin.value_or(now))});
}

void Backend::Answer(const httplib::Request& request, httplib::Response& response) const {
  const Answers answers = owner_.get_answers();
  const Fault fault = answers.FaultOf(request.path);
  served.fault = fault;
  const int connection = FindConnection({request.local_addr, request.local_port},
                                        {request.remote_addr, request.remote_port});
  Wait(connection, Clock::now() + fault.delay);
  if (connection < 0 || HasPeerLeft(connection)) {
    served.outcome = "cut";
  } else if (fault.hang) {
    Wait(connection, Clock::time_point::max());
    served.outcome = "hung";
  } else if (fault.reset) {
    ResetConnection(connection);
    served.outcome = "reset";
  }

  std::optional<std::string> body = BodyFor(request, answers);
  if (!body) response.status = kNotFound;
  if (fault.status) response.status = *fault.status;
  if (!body) return;
  if (fault.malformed) body->resize(body->size() / 2);
  response.set_content(*body, "application/json");
}

void Backend::Wait(int connection, Clock::time_point end) const {
  while (!stopping_ && connection >= 0 && !HasPeerLeft(connection) && Clock::now() < end) {
    std::this_thread::sleep_for(std::min<Clock::duration>(kPoll, end - Clock::now()));
  }
}

}  // namespace tarvel_backend
