#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tarvel_backend {

// What is to go wrong with a request.
struct Fault {
  std::chrono::milliseconds delay{0};  // Before anything else.
  bool hang = false;                   // No answer, for as long as the client waits.
  bool reset = false;                  // The connection is reset instead of an answer.
  int status = 0;                      // Answered instead of 200; 0 for no fault.
  bool malformed = false;              // The answer ends in the middle, as far as its meaning goes.
};

// The JSON file that says what the backend answers; docs/backend.md has its format. It is read anew
// for each question, so that an edit counts from the next request on.
//
// A file that can't be read or parsed, or has a member of another type, throws std::exception with
// a text for the user.
// Threads: any.
class AnswersFile {
 public:
  explicit AnswersFile(std::string path) : path_(std::move(path)) {}

  Fault FaultOf(const std::string& url_path) const;
  // Bodies; empty when the file has none.
  std::string LBSAnswer() const;
  std::string HttpDNSServers() const;
  // Of the hosts asked for, separated by commas, those that the file knows.
  std::string HttpDNSHosts(const std::string& asked) const;
  // Whether a client that asks for this name, which may be empty, gets a wrong certificate.
  bool HasWrongCertificate(const std::string& server_name) const;

 private:
  nlohmann::json Read() const;

  const std::string path_;
};

}  // namespace tarvel_backend
