#include "tests/support/nginx_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace test_support {

namespace {

constexpr const char* kProgram = "/usr/sbin/nginx";
constexpr std::chrono::seconds kPatience{10};

// A connection to the port of the server that only this file knows.
class Probe {
 public:
  explicit Probe(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<std::uint16_t>(port));
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval limit{kPatience.count(), 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    connected_ = connect(fd_, reinterpret_cast<sockaddr*>(&peer), sizeof peer) == 0;
  }
  ~Probe() { close(fd_); }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;

  bool IsAnswered() const {
    constexpr std::string_view kRequest = "GET / HTTP/1.0\r\n\r\n";
    std::array<char, 512> answer;
    return connected_ && send(fd_, kRequest.data(), kRequest.size(), MSG_NOSIGNAL) > 0 &&
           recv(fd_, answer.data(), answer.size(), 0) > 0;
  }

 private:
  const int fd_;
  bool connected_ = false;
};

std::string HostPort(const std::string& address, int port) {
  return UrlOf("", address, port, "").substr(3);
}

// nginx expects the sockets it takes over to be as it would have opened them: a worker would block
// in accept when another one was faster.
void PassOn(int socket) {
  fcntl(socket, F_SETFL, O_NONBLOCK);
  fcntl(socket, F_SETFD, 0);
}

// In the child. Of all descriptors, only the listening sockets pass on.
[[noreturn]] void Become(char* const* arguments, char* const* environment,
                         const std::vector<ListeningSocket>& sockets, pid_t parent) {
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  for (const ListeningSocket& socket : sockets) PassOn(socket.fd());
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() == parent) execve(kProgram, arguments, environment);
  _exit(127);
}

// Listening sockets that nginx takes over instead of opening them: "3;4;".
std::string InheritedSockets(const std::vector<ListeningSocket>& sockets) {
  std::string list = "NGINX=";
  for (const ListeningSocket& socket : sockets) list += std::to_string(socket.fd()) + ";";
  return list;
}

}  // namespace

NginxServer::NginxServer(NginxOptions options) : options_(std::move(options)) {
  std::vector<ListeningSocket> sockets;
  for (const NginxListener& listener : options_.listeners) sockets.emplace_back(listener.address);
  sockets.emplace_back("127.0.0.1");
  for (const ListeningSocket& socket : sockets) ports_.push_back(socket.port());
  WriteFiles();
  const Probe probe(ports_.back());
  Start(sockets);
  sockets.clear();  // From now on the probe breaks off when the process ends.
  if (probe.IsAnswered()) return;
  Stop();
  throw std::runtime_error("nginx does not start: " + ErrorLog());
}

NginxServer::~NginxServer() { Stop(); }

std::string NginxServer::url(std::string_view path, std::size_t listener) const {
  const NginxListener& asked = options_.listeners.at(listener);
  return UrlOf(asked.certificate ? "https" : "http", asked.address, port(listener), path);
}

std::string NginxServer::AccessLog(std::size_t lines) const {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (true) {
    // A worker logs a request before it turns to the next event.
    const bool answered = Probe(ports_.back()).IsAnswered();
    std::string log = ReadFile(directory_ / "access.log");
    const auto found = static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
    if (found >= lines || !answered || std::chrono::steady_clock::now() > deadline) return log;
  }
}

std::string NginxServer::ErrorLog() const { return ReadFile(directory_ / "error.log"); }

void NginxServer::WriteFiles() const {
  const std::filesystem::path root = directory_ / "root";
  std::filesystem::create_directory(root);
  for (const auto& [path, content] : options_.files) {
    const std::filesystem::path file = root.string() + "/" + path;
    std::filesystem::create_directories(file.parent_path());
    WriteFile(file, content);
  }
  WriteFile(directory_ / "nginx.conf", Configuration());
}

std::string NginxServer::Configuration() const {
  std::string text = geteuid() == 0 ? "user root;\n" : "";
  text += "worker_processes " + std::to_string(options_.workers) + ";\n";
  text += R"(daemon off;
pid nginx.pid;
lock_file nginx.lock;
events {}
http {
log_format line '$server_protocol $host $http_host $ssl_server_name $ssl_session_reused '
                '$connection $connection_requests $request_method $request_uri';
access_log access.log line;
client_body_temp_path body;
proxy_temp_path proxy;
fastcgi_temp_path fastcgi;
uwsgi_temp_path uwsgi;
scgi_temp_path scgi;
default_type text/plain;
ssl_protocols TLSv1.2 TLSv1.3;
)";
  for (std::size_t i = 0; i < options_.listeners.size(); ++i) text += ServerBlock(i);
  text += "server { listen " + HostPort("127.0.0.1", ports_.back()) +
          "; access_log off; return 204; }\n}\n";
  return text;
}

std::string NginxServer::ServerBlock(std::size_t listener) const {
  const NginxListener& own = options_.listeners[listener];
  std::string text = "server {\nroot root;\nlisten " + HostPort(own.address, ports_[listener]);
  if (own.certificate) text += " ssl";
  if (own.http2) text += " http2";
  text += ";\n";
  if (own.certificate) {
    text += "ssl_certificate " + own.certificate->certificate_file + ";\n";
    text += "ssl_certificate_key " + own.certificate->key_file + ";\n";
  }
  return text + options_.server_text + "\n}\n";
}

void NginxServer::Start(const std::vector<ListeningSocket>& sockets) {
  std::array<std::string, 7> words{kProgram,     "-p", directory_.path(), "-c",
                                   "nginx.conf", "-e", "error.log"};
  std::array<char*, words.size() + 1> arguments{};
  std::transform(words.begin(), words.end(), arguments.begin(),
                 [](std::string& word) { return word.data(); });
  std::string inherited = InheritedSockets(sockets);
  const std::array<char*, 2> environment{inherited.data(), nullptr};
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ == 0) Become(arguments.data(), environment.data(), sockets, parent);
}

void NginxServer::Stop() const {
  if (process_ < 0) return;
  kill(process_, SIGTERM);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) continue;
}

}  // namespace test_support
