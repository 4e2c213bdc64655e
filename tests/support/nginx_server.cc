#include "tests/support/nginx_server.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <list>
#include <thread>
#include <utility>

namespace test_support {

NginxServer::NginxServer(NginxOptions options) : options_(std::move(options)) {
  std::list<ListeningSocket> sockets;
  std::string inherited = "NGINX=";  // The descriptors that nginx takes over: "3;4;".
  for (const NginxListener& listener : options_.listeners) {
    const ListeningSocket& socket = sockets.emplace_back(listener.address);
    ports_.push_back(socket.port());
    inherited += std::to_string(socket.fd()) + ";";
    fcntl(socket.fd(), F_SETFL, O_NONBLOCK);  // As nginx would have opened it.
    fcntl(socket.fd(), F_SETFD, 0);
  }
  for (const auto& [name, content] : options_.files) WriteFile(directory_ / name, content);
  WriteFile(directory_ / "nginx.conf", Configuration());
  process_.emplace(std::vector<std::string>{"/usr/bin/env", "-i", inherited, "/usr/sbin/nginx",
                                            "-p", directory_.path(), "-c", "nginx.conf", "-e",
                                            "error.log"});
}

NginxServer::~NginxServer() {
  process_->Signal(SIGTERM);
  if (process_->Wait() == 0) return;
  std::cerr << "nginx has failed: " << process_->output() << ReadFile(directory_ / "error.log");
}

std::string NginxServer::url(std::string_view path, std::size_t listener) const {
  const NginxListener& asked = options_.listeners.at(listener);
  return UrlOf(asked.certificate ? "https" : "http", asked.address, port(listener), path);
}

std::string NginxServer::AccessLog(std::size_t lines) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
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
  for (std::size_t i = 0; i < options_.listeners.size(); ++i) {
    const auto& [address, certificate, http2] = options_.listeners[i];
    text += "server {\nroot .;\nlisten " + UrlOf("", address, ports_[i], "").substr(3) +
            (certificate ? " ssl" : "") + (http2 ? " http2" : "") + ";\n";
    if (certificate) {
      text += "ssl_certificate " + certificate->certificate_file + ";\nssl_certificate_key " +
              certificate->key_file + ";\n";
    }
    text += options_.server_text + "\n}\n";
  }
  return text + "}\n";
}

}  // namespace test_support
