#include "tools/backend/answers_file.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/text/strings.h"

namespace tarvel_backend {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kLongestDelay = 3'600'000;  // An hour, in milliseconds.

// Returns an empty object for an absent member, and throws for one that is no object.
Json ObjectIn(const Json& object, const char* key) {
  Json member = object.value(key, Json::object());
  if (!member.is_object()) throw std::runtime_error(std::string(key) + " is no JSON object");
  return member;
}

std::optional<std::string> MemberText(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? std::nullopt : std::optional(found->dump());
}

int NumberIn(const Json& value, int lowest, int highest) {
  const auto number = value.get<std::int64_t>();
  if (number < lowest || number > highest) {
    throw std::runtime_error(value.dump() + " is not in " + std::to_string(lowest) + " to " +
                             std::to_string(highest));
  }
  return static_cast<int>(number);
}

Fault ReadFault(const Json& members) {
  if (!members.is_object()) throw std::runtime_error("a fault is no JSON object");
  Fault fault;
  for (const auto& [name, value] : members.items()) {
    if (name == "delay_ms") {
      fault.delay = std::chrono::milliseconds(NumberIn(value, 0, kLongestDelay));
    } else if (name == "hang") {
      fault.hang = value.get<bool>();
    } else if (name == "reset") {
      fault.reset = value.get<bool>();
    } else if (name == "status") {
      fault.status = NumberIn(value, 200, 599);
    } else if (name == "malformed") {
      fault.malformed = value.get<bool>();
    } else {
      throw std::runtime_error("no such fault: " + name);
    }
  }
  return fault;
}

std::vector<std::string> WrongCertificates(const Json& file) {
  return file.value("wrong_certificate", std::vector<std::string>());
}

}  // namespace

Answers::Answers(Json file) : file_(std::move(file)) {
  if (!file_.is_object()) throw std::runtime_error("it holds no JSON object");
  const Json faults = ObjectIn(file_, "faults");
  for (const auto& [path, members] : faults.items()) ReadFault(members);
  ObjectIn(ObjectIn(file_, "httpdns"), "hosts");
  WrongCertificates(file_);
}

Fault Answers::FaultOf(const std::string& url_path) const {
  return ReadFault(ObjectIn(ObjectIn(file_, "faults"), url_path.c_str()));
}

std::optional<std::string> Answers::LBSAnswer() const { return MemberText(file_, "lbs"); }

std::optional<std::string> Answers::HttpDNSServers() const {
  return MemberText(ObjectIn(file_, "httpdns"), "servers");
}

std::string Answers::HttpDNSHosts(const std::string& asked) const {
  const Json known = ObjectIn(ObjectIn(file_, "httpdns"), "hosts");
  Json data = Json::object();
  for (const std::string& host : zo_base::Split(asked, ",")) {
    if (known.contains(host)) data[host] = known[host];
  }
  return Json{{"code", 200}, {"data", data}}.dump();
}

bool Answers::HasWrongCertificate(const std::string& server_name) const {
  const auto names = WrongCertificates(file_);
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& name) { return name == "*" || name == server_name; });
}

Answers ReadAnswers(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("can't read the answers file " + path);
  try {
    return Answers(Json::parse(file));
  } catch (const std::exception& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

}  // namespace tarvel_backend
