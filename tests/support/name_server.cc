#include "tests/support/name_server.h"

#include <unistd.h>

namespace test_support {

namespace {

constexpr char kProgram[] = "/usr/sbin/dnsmasq";

std::vector<std::string> Arguments(std::vector<std::string> options) {
  options.insert(options.begin(),
                 {kProgram, "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts",
                  "--listen-address=127.0.0.1", "--bind-interfaces"});
  return options;
}

}  // namespace

NameServer::NameServer(const std::vector<std::string>& options) : program_(Arguments(options)) {
  program_.AwaitOutput("started");
}

bool NameServer::IsInstalled() { return access(kProgram, X_OK) == 0; }

}  // namespace test_support
