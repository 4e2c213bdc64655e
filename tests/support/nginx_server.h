#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/certificate_authority.h"
#include "tests/support/program.h"
#include "tests/support/raw_server.h"
#include "tests/support/temp_directory.h"

namespace test_support {

struct NginxListener {
  std::string address = "127.0.0.1";
  std::optional<ServerCertificate> certificate = {};  // With one, it speaks TLS.
  bool http2 = false;  // Without a certificate only for clients that know it in advance.
};

struct NginxOptions {
  std::vector<NginxListener> listeners{NginxListener{}};
  std::map<std::string, std::string> files = {};  // Name in the root directory -> content.
  std::string server_text = {};                   // Directives for every listener's server block.
};

// A production server as a process of its own, with all of its files in one directory. Its sockets
// listen before it starts, so ports of several can't collide, and a client may connect at once.
//
// The process ends with this, or with the thread that made it. If it has ended before, standard
// error tells why.
class NginxServer {
 public:
  explicit NginxServer(NginxOptions options = {});
  ~NginxServer();

  int port(std::size_t listener = 0) const { return ports_.at(listener); }
  std::string url(std::string_view path, std::size_t listener = 0) const;

  // Returns a line for each request that has ended, in order, with "-" for what is missing:
  // protocol, host, Host header, SNI, number of the connection, method, target.
  // Waits until there are `lines`, for 10 s at most.
  std::string AccessLog(std::size_t lines) const;

 private:
  std::string Configuration() const;

  const TempDirectory directory_;
  const NginxOptions options_;
  std::vector<int> ports_;  // Of the listeners.
  std::optional<Program> process_;
};

}  // namespace test_support
