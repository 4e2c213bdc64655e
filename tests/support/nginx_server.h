#pragma once

#include <fcntl.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <map>
#include <optional>

#include "tests/support/certificate_authority.h"
#include "tests/support/program.h"
#include "tests/support/raw_server.h"

namespace test_support {

struct NginxListener {
  std::string address = "127.0.0.1";
  std::string certificate = {};  // The file of it and its key. With one, it speaks TLS.
  bool http2 = false;            // Without a certificate only for clients that know it in advance.
};

struct NginxOptions {
  std::vector<NginxListener> listeners{NginxListener{}};
  std::map<std::string, std::string> files{{"index", "good"}};  // Name in the root -> content.
  std::string server_text = {};  // Directives for every listener's server block.
};

// A production server as a process of its own, with all of its files in one directory. Its sockets
// listen before it starts, so ports of several can't collide, and a client may connect at once.
//
// The process ends with this, or with the thread that made it. If it has ended before, standard
// error tells why.
class NginxServer {
 public:
  explicit NginxServer(const NginxOptions& options = {}) {
    std::list<ListeningSocket> sockets;
    std::string inherited = "NGINX=";  // The descriptors that nginx takes over: "3;4;".
    std::string configuration = geteuid() == 0 ? "user root;\n" : "";  // For its worker.
    configuration += R"(daemon off; pid nginx.pid; events {}
http {
log_format line '$server_protocol $host $http_host $ssl_server_name $connection $request_uri';
access_log access.log line;
client_body_temp_path body; proxy_temp_path proxy;
fastcgi_temp_path fastcgi; uwsgi_temp_path uwsgi; scgi_temp_path scgi;
)";
    for (const auto& [address, certificate, http2] : options.listeners) {
      const ListeningSocket& socket = sockets.emplace_back(address);
      fcntl(socket.fd(), F_SETFL, O_NONBLOCK);  // As nginx would have opened it.
      fcntl(socket.fd(), F_SETFD, 0);
      inherited += std::to_string(socket.fd()) + ";";
      ports_.push_back(socket.port());
      urls_.push_back(socket.url("", certificate.empty() ? "http" : "https"));
      configuration += "server {\nroot .;\n" + options.server_text + "\nlisten " +
                       socket.url("").substr(sizeof "http://" - 1) + (http2 ? " http2" : "");
      if (!certificate.empty()) {
        configuration +=
            " ssl;\nssl_certificate " + certificate + ";\nssl_certificate_key " + certificate;
      }
      configuration += ";\n}\n";
    }
    for (const auto& [name, content] : options.files) WriteFile(directory_ / name, content);
    WriteFile(directory_ / "nginx.conf", configuration + "}\n");
    process_.emplace(std::vector<std::string>{"/usr/bin/env", "-i", inherited, "/usr/sbin/nginx",
                                              "-p", directory_.path(), "-c", "nginx.conf", "-e",
                                              "error.log"});
  }
  ~NginxServer() {
    process_->Signal(SIGTERM);
    if (process_->Wait() == 0) return;
    std::cerr << "nginx has failed: " << process_->output() << ReadFile(directory_ / "error.log");
  }

  int port(std::size_t listener = 0) const { return ports_.at(listener); }
  std::string url(std::string_view path, std::size_t listener = 0) const {
    return urls_.at(listener) + std::string(path);
  }

  // Returns a line for each request that has ended, in order, with "-" for what is missing:
  // protocol, host, Host header, SNI, number of the connection, target.
  // Waits until there are `lines`, for 10 s at most.
  std::string AccessLog(int lines) const {
    using Clock = std::chrono::steady_clock;
    std::string log;
    for (const auto deadline = Clock::now() + std::chrono::seconds(10);
         std::count(log.begin(), log.end(), '\n') < lines && Clock::now() < deadline;) {
      log = ReadFile(directory_ / "access.log");
    }
    return log;
  }

 private:
  const TempDirectory directory_;
  std::vector<int> ports_;  // Of the listeners.
  std::vector<std::string> urls_;
  std::optional<Program> process_;
};

}  // namespace test_support
