#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/backend/checked_json.h"
#include "tools/backend/fault.h"

namespace tarvel_backend {

// The contents of the answers file: answers and faults. docs/backend.md has the format. A plain
// value.
class Answers {
 public:
  Answers() = default;
  // Throws std::runtime_error, with the member's name, when a member is unknown or has the wrong
  // type or value. The answers themselves are the user's: they are passed on as they are.
  explicit Answers(const CheckedJson& file);

  // Every request has this fault from now on, whatever the file says.
  void SetFaultOfAll(const Fault& fault) { fault_of_all_ = fault; }

  Fault FaultOf(const std::string& url_path) const;
  // Both return a body, or nullopt when the file has none.
  const std::optional<std::string>& LBSAnswer() const { return lbs_; }
  const std::optional<std::string>& HttpDNSServers() const { return servers_; }
  // Returns the body for the hosts in `asked`, a list with commas, without unknown hosts.
  std::string HttpDNSHosts(const std::string& asked) const;
  // Returns whether a client that sends this TLS server name, which may be empty, gets the wrong
  // certificate.
  bool HasWrongCertificate(const std::string& server_name) const;

 private:
  std::optional<std::string> lbs_;
  std::optional<std::string> servers_;
  Json hosts_ = Json::object();
  std::map<std::string, Fault> faults_;  // By path.
  std::optional<Fault> fault_of_all_;
  std::vector<std::string> wrong_certificate_;
};

// Reads the file. Throws std::runtime_error with a message for the user when it is unusable. Any
// thread.
Answers ReadAnswers(const std::string& path);

}  // namespace tarvel_backend
