#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "bench/doh_server.h"
#include "tests/support/name_server.h"
#include "tests/support/program.h"
#include "tests/support/temp_directory.h"

namespace tarvel_bench {

// Two LBS hosts, an HTTPDNS host and a name server that knows them, in a private network (see
// private_network.h), each on an address of its own and each able to fail in its own way.
class Lab {
 public:
  enum Host { kFirst, kSecond, kHttpDns, kForeign };

  // `backend` is the path of the backend program. All serve when this returns.
  explicit Lab(const std::string& backend);

  // Returns "https://lbs1.lab/lbs/conf.jsp" for an LBS host.
  static std::string UrlOf(Host host);

  // Makes the LBS path of the host fail. `fault` is the members of a fault, see docs/backend.md.
  void SetFault(Host host, const std::string& fault) const;
  // Drops all packets to the host.
  void CutOff(Host host);
  void Kill(Host host) { hosts_[host].Kill(); }
  // Makes the name server return the address of a foreign host for the names of the LBS hosts.
  void PoisonNames() { StartNameServer(kForeign, kForeign); }
  void SilenceNameServer() { name_server_.reset(); }

  // A name server over HTTPS that knows the true addresses.
  static constexpr char kDohUrl[] = "https://127.0.0.5/dns-query";
  std::unique_ptr<DohServer> MakeDohServer() const;

  // The certificates of all hosts.
  std::string trust_store() const { return directory_ / "trusted.pem"; }
  // The server cache file of a client that has reached the HTTPDNS host before.
  std::string httpdns_servers() const { return directory_ / "servers.data"; }

 private:
  std::string AnswersFileOf(Host host) const;
  void StartNameServer(Host first, Host second);

  const test_support::TempDirectory directory_;
  std::optional<test_support::NameServer> name_server_;
  std::deque<test_support::Program> hosts_;  // By Host.
};

}  // namespace tarvel_bench
