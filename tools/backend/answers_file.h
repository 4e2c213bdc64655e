#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tarvel_backend {

// The faults of one request.
struct Fault {
  std::chrono::milliseconds delay{0};  // Before the other faults.
  bool hang = false;                   // Never answer while the client waits.
  bool reset = false;                  // Reset the connection instead of answering.
  std::optional<int> status = {};      // Replaces the right one.
  bool malformed = false;              // Leave the second half of the body out.
};

// The contents of the answers file: answers and faults. docs/backend.md has the format. A plain
// value.
class Answers {
 public:
  // Throws std::exception when a member has the wrong type or value.
  explicit Answers(nlohmann::ordered_json file);

  Fault FaultOf(const std::string& url_path) const;
  // Both return a body, or nullopt when the file has none.
  std::optional<std::string> LBSAnswer() const;
  std::optional<std::string> HttpDNSServers() const;
  // Returns the body for the hosts in `asked`, a list with commas, without unknown hosts.
  std::string HttpDNSHosts(const std::string& asked) const;
  // Returns whether a client that sends this TLS server name, which may be empty, gets the wrong
  // certificate.
  bool HasWrongCertificate(const std::string& server_name) const;

 private:
  const nlohmann::ordered_json file_;
};

// Reads the file. Throws std::runtime_error with a message for the user when it is unusable. Any
// thread.
Answers ReadAnswers(const std::string& path);

}  // namespace tarvel_backend
