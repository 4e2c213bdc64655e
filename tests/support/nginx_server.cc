#include "tests/support/nginx_server.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <thread>
#include <utility>

namespace test_support {

namespace {

constexpr const char* kProgram = "/usr/sbin/nginx";
constexpr std::chrono::seconds kPatience{10};

// In the child. Of all descriptors, only the listening sockets pass on.
[[noreturn]] void Become(char* const* arguments, char* const* environment,
                         const std::vector<ListeningSocket>& sockets, pid_t parent) {
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  for (const ListeningSocket& socket : sockets) {
    fcntl(socket.fd(), F_SETFL, O_NONBLOCK);  // As nginx would have opened it.
    fcntl(socket.fd(), F_SETFD, 0);
  }
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() == parent) execve(kProgram, arguments, environment);
  _exit(127);
}

}  // namespace

NginxServer::NginxServer(NginxOptions options) : options_(std::move(options)) {
  std::vector<ListeningSocket> sockets;
  std::string inherited = "NGINX=";  // What nginx takes over instead of opening it: "3;4;".
  for (const NginxListener& listener : options_.listeners) {
    const ListeningSocket& socket = sockets.emplace_back(listener.address);
    ports_.push_back(socket.port());
    inherited += std::to_string(socket.fd()) + ";";
  }
  std::filesystem::create_directory(directory_ / "files");
  for (const auto& [name, content] : options_.files) {
    WriteFile(directory_.path() + "/files/" + name, content);
  }
  WriteFile(directory_ / "nginx.conf", Configuration());
  std::string words[] = {kProgram, "-p", directory_.path(), "-c", "nginx.conf", "-e", "error.log"};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  char* const environment[] = {inherited.data(), nullptr};
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ == 0) Become(arguments.data(), environment, sockets, parent);
}

NginxServer::~NginxServer() {
  if (waitpid(process_, nullptr, WNOHANG) == process_) {
    std::cerr << "nginx has ended: " << ReadFile(directory_ / "error.log");
    return;
  }
  kill(process_, SIGTERM);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) continue;
}

std::string NginxServer::url(std::string_view path, std::size_t listener) const {
  const NginxListener& asked = options_.listeners.at(listener);
  return UrlOf(asked.certificate ? "https" : "http", asked.address, port(listener), path);
}

std::string NginxServer::AccessLog(std::size_t lines) const {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (true) {
    std::string log = ReadFile(directory_ / "access.log");
    const auto found = static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
    if (found >= lines || std::chrono::steady_clock::now() > deadline) return log;
    std::this_thread::yield();
  }
}

std::string NginxServer::Configuration() const {
  std::string text = geteuid() == 0 ? "user root;\n" : "";  // For its worker.
  text += R"(daemon off;
pid nginx.pid;
lock_file nginx.lock;
events {}
http {
log_format line '$server_protocol $host $http_host $ssl_server_name $connection '
                '$request_method $request_uri';
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
  return text + "}\n";
}

std::string NginxServer::ServerBlock(std::size_t listener) const {
  const NginxListener& own = options_.listeners[listener];
  std::string text = "server {\nroot files;\nlisten ";
  text += UrlOf("", own.address, ports_[listener], "").substr(3);
  if (own.certificate) text += " ssl";
  if (own.http2) text += " http2";
  text += ";\n";
  if (own.certificate) {
    text += "ssl_certificate " + own.certificate->certificate_file + ";\n";
    text += "ssl_certificate_key " + own.certificate->key_file + ";\n";
  }
  return text + options_.server_text + "\n}\n";
}

}  // namespace test_support
