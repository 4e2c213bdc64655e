#include "tests/support/http_server.h"

#include <httplib.h>
#include <openssl/ssl.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/support/raw_server.h"

namespace test_support {

namespace {

struct Free {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(SSL* ssl) const { SSL_free(ssl); }
};
using TlsContext = std::unique_ptr<SSL_CTX, Free>;

// Accepted names become part of the session: a resumed one has its name, too.
int AcceptName(SSL*, int*, void*) { return SSL_TLSEXT_ERR_OK; }

TlsContext TlsContextFor(const std::optional<ServerCertificate>& certificate) {
  if (!certificate) return nullptr;
  TlsContext context(SSL_CTX_new(TLS_server_method()));
  if (!context ||
      SSL_CTX_use_certificate_chain_file(context.get(), certificate->certificate_file.c_str()) !=
          1 ||
      SSL_CTX_use_PrivateKey_file(context.get(), certificate->key_file.c_str(), SSL_FILETYPE_PEM) !=
          1) {
    throw std::runtime_error("cannot serve with " + certificate->certificate_file);
  }
  SSL_CTX_set_tlsext_servername_callback(context.get(), &AcceptName);
  return context;
}

// One connection, plain or TLS, that remembers the bytes of the request it is at.
class ConnectionStream final : public httplib::Stream {
 public:
  ConnectionStream(int fd, SSL_CTX* tls) : fd_(fd) {
    if (tls == nullptr) return;
    ssl_.reset(SSL_new(tls));
    SSL_set_fd(ssl_.get(), fd);
  }

  bool Handshake() { return !ssl_ || SSL_accept(ssl_.get()) == 1; }
  void SayGoodbye() {
    if (ssl_) SSL_shutdown(ssl_.get());
  }

  std::string sni() const {
    const char* name = ssl_ ? SSL_get_servername(ssl_.get(), TLSEXT_NAMETYPE_host_name) : nullptr;
    return name == nullptr ? "" : name;
  }

  void BeginRequest() { request_.clear(); }
  const std::string& request() const { return request_; }

  bool is_readable() const override { return true; }
  bool is_writable() const override { return true; }
  ssize_t read(char* bytes, std::size_t size) override {
    if (next_ == end_ && !Refill()) return -1;
    size = std::min(size, end_ - next_);
    std::copy_n(buffer_.data() + next_, size, bytes);
    request_.append(bytes, size);
    next_ += size;
    return static_cast<ssize_t>(size);
  }
  ssize_t write(const char* bytes, std::size_t size) override {
    if (!ssl_) return send(fd_, bytes, size, MSG_NOSIGNAL);
    return SSL_write(ssl_.get(), bytes, static_cast<int>(size));
  }
  void get_remote_ip_and_port(std::string&, int&) const override {}
  void get_local_ip_and_port(std::string&, int&) const override {}
  socket_t socket() const override { return fd_; }

 private:
  bool Refill() {
    const int size = static_cast<int>(buffer_.size());
    const ssize_t got = ssl_ ? SSL_read(ssl_.get(), buffer_.data(), size)
                             : recv(fd_, buffer_.data(), buffer_.size(), 0);
    next_ = 0;
    end_ = got > 0 ? static_cast<std::size_t>(got) : 0;
    return end_ > 0;
  }

  const int fd_;
  std::unique_ptr<SSL, Free> ssl_;
  std::string request_;
  std::array<char, 16384> buffer_;
  std::size_t next_ = 0;
  std::size_t end_ = 0;
};

// httplib's own map of headers loses their order.
Headers HeadersOf(const std::string& request) {
  Headers headers;
  std::istringstream lines(request);
  std::string line;
  std::getline(lines, line);  // The request line.
  while (std::getline(lines, line) && line != "\r") {
    if (line.ends_with('\r')) line.pop_back();
    const std::size_t colon = line.find(':');
    const std::size_t value = line.find_first_not_of(" \t", colon + 1);
    headers.emplace_back(line.substr(0, colon),
                         value == std::string::npos ? "" : line.substr(value));
  }
  return headers;
}

// httplib parses forms, and refuses large ones.
void TakeBodyAsItStands(httplib::Request& request) { request.headers.erase("Content-Type"); }

// A thread for each connection: a pool would let idle connections hold up new ones.
class ThreadPerTask final : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> task) override { threads_.emplace_back(std::move(task)); }
  void shutdown() override { threads_.clear(); }

 private:
  std::vector<std::jthread> threads_;  // Touched by the listening thread only.
};

// httplib turns SIGPIPE off for the whole process, which would hide a client that raises it.
struct SigpipeBefore {
  SigpipeBefore() { sigaction(SIGPIPE, nullptr, &action); }
  void Restore() const { sigaction(SIGPIPE, &action, nullptr); }

  struct sigaction action {};
};

void BlockSigpipeOnThisThread() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

// What the thread of a connection is serving; httplib hands no context through to a handler.
thread_local const ConnectionStream* current_stream = nullptr;
thread_local int current_connection = 0;

ServerAnswer Echo(const SeenRequest& request) { return {200, {}, request.body}; }

}  // namespace

std::string SeenRequest::header(std::string_view name) const {
  for (const auto& [own_name, value] : headers) {
    if (own_name.size() == name.size() &&
        strncasecmp(own_name.data(), name.data(), name.size()) == 0) {
      return value;
    }
  }
  return {};
}

// httplib accepts, reads requests and writes answers. The loop over a connection's requests is
// here, because its own waits for idle peers when it stops.
class HttpServer::Engine final : private SigpipeBefore, private httplib::Server {
 public:
  Engine(const std::optional<ServerCertificate>& certificate, const std::string& address);
  ~Engine() override;

  int port() const { return port_; }
  std::string url(std::string_view path) const {
    return UrlOf(tls_ ? "https" : "http", address_, port_, path);
  }

  void Answer(const std::string& path, HttpServer::Handler handler);
  std::vector<SeenRequest> requests() const;
  int connections() const;
  void CloseConnections();

 private:
  void SetUp();
  void ServeOneToNobody();
  bool process_and_close_socket(socket_t fd) override;
  bool Open(int fd);
  void Close(int fd);
  void Converse(int fd, int connection);
  void Handle(const httplib::Request& request, httplib::Response& response);
  HttpServer::Handler Record(const SeenRequest& seen);

  const std::string address_;
  const TlsContext tls_;
  int port_ = 0;
  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::map<std::string, HttpServer::Handler> handlers_;
  std::vector<SeenRequest> requests_;
  std::set<int> open_;
  int accepted_ = 0;
  bool stopping_ = false;

  std::jthread listener_;  // Last: all that it uses exists before it starts.
};

HttpServer::Engine::Engine(const std::optional<ServerCertificate>& certificate,
                           const std::string& address)
    : address_(address), tls_(TlsContextFor(certificate)) {
  Restore();
  ListeningSocket socket(address);
  port_ = socket.port();
  svr_sock_ = socket.Release();
  ServeOneToNobody();
  SetUp();
  listener_ = std::jthread([this] {
    BlockSigpipeOnThisThread();  // So do the threads of the connections: OpenSSL may raise it.
    listen_after_bind();
  });
  while (!is_running()) std::this_thread::yield();  // Until then it can't be stopped.
}

HttpServer::Engine::~Engine() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  CloseConnections();
  stop();
  listener_.join();
}

// httplib makes constants on first use. Made before there are threads, they are no race to a thread
// sanitizer, which can't see how the built library guards them.
void HttpServer::Engine::ServeOneToNobody() {
  constexpr std::string_view kRequest = "GET / HTTP/1.1\r\nRange: bytes=0-0\r\n\r\n";
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
  bool closed = send(ends[1], kRequest.data(), kRequest.size(), MSG_NOSIGNAL) < 0;
  ConnectionStream stream(ends[0], nullptr);
  process_request(stream, true, closed, nullptr);
  for (const int end : ends) close(end);
}

void HttpServer::Engine::SetUp() {
  const auto handle = [this](const httplib::Request& request, httplib::Response& response) {
    Handle(request, response);
  };
  const std::string any = ".*";
  Get(any, handle).Post(any, handle).Put(any, handle).Patch(any, handle);
  Delete(any, handle).Options(any, handle);
  set_read_timeout(0);  // No limit: a connection ends with its peer or with the server.
  set_write_timeout(0);
  set_keep_alive_timeout(3600);  // Only told to the peer, as the count is.
  set_keep_alive_max_count(100'000);
  new_task_queue = [] { return new ThreadPerTask; };
}

void HttpServer::Engine::Answer(const std::string& path, HttpServer::Handler handler) {
  const std::lock_guard lock(mutex_);
  handlers_[path] = std::move(handler);
}

std::vector<SeenRequest> HttpServer::Engine::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

int HttpServer::Engine::connections() const {
  const std::lock_guard lock(mutex_);
  return accepted_;
}

void HttpServer::Engine::CloseConnections() {
  const std::lock_guard lock(mutex_);
  for (const int fd : open_) shutdown(fd, SHUT_RDWR);
}

bool HttpServer::Engine::process_and_close_socket(socket_t fd) {
  int connection = 0;
  bool serve = false;
  {
    const std::lock_guard lock(mutex_);
    connection = ++accepted_;
    serve = !stopping_;
    open_.insert(fd);
  }
  if (serve) Converse(fd, connection);
  const std::lock_guard lock(mutex_);
  open_.erase(fd);
  close(fd);
  return true;
}

void HttpServer::Engine::Converse(int fd, int connection) {
  ConnectionStream stream(fd, tls_.get());
  current_stream = &stream;
  current_connection = connection;
  bool closed = !stream.Handshake();
  while (!closed && process_request(stream, false, closed, &TakeBodyAsItStands)) {
    stream.BeginRequest();
  }
  stream.SayGoodbye();
  current_stream = nullptr;
}

void HttpServer::Engine::Handle(const httplib::Request& request, httplib::Response& response) {
  const SeenRequest seen{request.method,    request.target,
                         request.version,   HeadersOf(current_stream->request()),
                         request.body,      current_stream->sni(),
                         current_connection};
  const ServerAnswer answer = Record(seen)(seen);
  response.status = answer.status;
  for (const auto& [name, value] : answer.headers) response.headers.emplace(name, value);
  response.body = answer.body;
}

// Its handler.
HttpServer::Handler HttpServer::Engine::Record(const SeenRequest& seen) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(seen);
  const auto found = handlers_.find(seen.target.substr(0, seen.target.find('?')));
  return found == handlers_.end() ? Echo : found->second;
}

HttpServer::HttpServer(const std::optional<ServerCertificate>& certificate,
                       const std::string& address)
    : engine_(std::make_unique<Engine>(certificate, address)) {}

HttpServer::~HttpServer() = default;

int HttpServer::port() const { return engine_->port(); }

std::string HttpServer::url(std::string_view path) const { return engine_->url(path); }

void HttpServer::Answer(const std::string& path, Handler handler) {
  engine_->Answer(path, std::move(handler));
}

std::vector<SeenRequest> HttpServer::requests() const { return engine_->requests(); }

int HttpServer::connections() const { return engine_->connections(); }

void HttpServer::CloseConnections() { engine_->CloseConnections(); }

}  // namespace test_support
