#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tarvel_backend {

// What is to go wrong with a request.
struct Fault {
  std::chrono::milliseconds delay{0};  // Before anything else.
  bool hang = false;                   // No answer, for as long as the client waits.
  bool reset = false;                  // The connection is reset instead of an answer.
  std::optional<int> status = {};      // In place of the right one.
  bool malformed = false;              // The second half of the answer is missing.
};

// What the backend answers and what goes wrong, as one reading of the answers file says.
// docs/backend.md has the format. A plain value.
class Answers {
 public:
  // Throws std::exception when a member isn't what it has to be.
  explicit Answers(nlohmann::ordered_json file);

  Fault FaultOf(const std::string& url_path) const;
  // Bodies; nothing when the file has none.
  std::optional<std::string> LBSAnswer() const;
  std::optional<std::string> HttpDNSServers() const;
  // Of the hosts asked for, separated by commas, those that the file knows.
  std::string HttpDNSHosts(const std::string& asked) const;
  // Whether a client that asks for this name, which may be empty, gets a wrong certificate.
  bool HasWrongCertificate(const std::string& server_name) const;

 private:
  const nlohmann::ordered_json file_;
};

// Reads `path` anew. Throws std::runtime_error, with a text for the user, when the file can't be
// used. Any thread.
Answers ReadAnswers(const std::string& path);

}  // namespace tarvel_backend
