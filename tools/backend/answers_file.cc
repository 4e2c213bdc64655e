#include "tools/backend/answers_file.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace tarvel_backend {

namespace {

using nlohmann::json;

// An absent member is an empty object.
json Member(const json& object, const char* key) { return object.value(key, json::object()); }

std::string BodyOf(const json& answer) { return answer.empty() ? std::string() : answer.dump(); }

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, ',');) pieces.push_back(piece);
  return pieces;
}

}  // namespace

json AnswersFile::Read() const {
  std::ifstream file(path_);
  if (!file) throw std::runtime_error("can't read the answers file " + path_);
  json answers = json::parse(file, nullptr, /*allow_exceptions=*/false);
  if (!answers.is_object()) throw std::runtime_error(path_ + " holds no JSON object");
  return answers;
}

Fault AnswersFile::FaultOf(const std::string& url_path) const {
  const json text = Member(Member(Read(), "faults"), url_path.c_str());
  Fault fault;
  fault.delay = std::chrono::milliseconds(text.value("delay_ms", 0));
  fault.hang = text.value("hang", false);
  fault.reset = text.value("reset", false);
  fault.status = text.value("status", 0);
  fault.malformed = text.value("malformed", false);
  return fault;
}

std::string AnswersFile::LBSAnswer() const { return BodyOf(Member(Read(), "lbs")); }

std::string AnswersFile::HttpDNSServers() const {
  return BodyOf(Member(Member(Read(), "httpdns"), "servers"));
}

std::string AnswersFile::HttpDNSHosts(const std::string& asked) const {
  const json known = Member(Member(Read(), "httpdns"), "hosts");
  json data = json::object();
  for (const std::string& host : SplitAtCommas(asked)) {
    if (known.contains(host)) data[host] = known[host];
  }
  return json{{"code", 200}, {"data", data}}.dump();
}

bool AnswersFile::HasWrongCertificate(const std::string& server_name) const {
  const auto names = Read().value("wrong_certificate", std::vector<std::string>());
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& name) { return name == "*" || name == server_name; });
}

}  // namespace tarvel_backend
