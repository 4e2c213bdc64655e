#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/name_server.h"
#include "tests/support/program.h"
#include "tests/support/temp_directory.h"

namespace test_support {

// Two LBS hosts, an HTTPDNS host and a name server that knows them, in a private network (see
// private_network.h), each on an address of its own and each able to fail in its own way.
class Lab {
 public:
  enum Host { kFirst, kSecond, kHttpDns };

  // `backend` is the path of the backend program. All serve when this returns.
  explicit Lab(const std::string& backend);

  // "https://lbs1.lab/lbs/conf.jsp" of an LBS host.
  static std::string UrlOf(Host host);
  static std::string AddressOf(Host host);

  // Has the LBS path of the host go wrong in this way: members of a fault, see docs/backend.md.
  void SetFault(Host host, const std::string& fault);
  // Shows those who connect to this host a certificate that isn't its own.
  void ShowWrongCertificate(Host host);
  // Drops all packets to the host.
  void CutOff(Host host);
  void Kill(Host host);
  // The name server says of all names of LBS hosts that they are at an address where another server
  // answers.
  void PoisonNames();
  void SilenceNameServer() { name_server_.reset(); }

  // Certificates of all hosts.
  std::string trust_store() const { return directory_ / "trusted.pem"; }
  // What a client that has met the HTTPDNS host has kept: its server cache file.
  std::string httpdns_servers() const { return directory_ / "servers.data"; }

 private:
  std::string AnswersFileOf(const std::string& name) const { return directory_ / (name + ".json"); }
  void StartBackend(const std::string& name, const std::string& address,
                    const std::vector<std::string>& options);
  void WriteAnswers(Host host, const std::string& faults) const;

  const TempDirectory directory_;
  const std::string backend_;
  std::optional<NameServer> name_server_;
  std::deque<Program> hosts_;  // By Host; then the one where poisoned names lead.
};

}  // namespace test_support
