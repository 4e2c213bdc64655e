#include "tools/backend/answers_file.h"

#include <algorithm>
#include <stdexcept>

#include "base/text/strings.h"
#include "tools/backend/json_file.h"
#include "tools/terminal/json_text.h"

namespace tarvel_backend {

namespace {

std::optional<std::string> TextOf(const std::optional<CheckedJson>& member) {
  return member ? std::optional(tarvel_terminal::JsonText(member->json())) : std::nullopt;
}

}  // namespace

Answers::Answers(const CheckedJson& file) {
  file.ObjectOf({"lbs", "httpdns", "faults", "wrong_certificate"});
  lbs_ = TextOf(file.Find("lbs"));
  if (const auto httpdns = file.Find("httpdns")) {
    httpdns->ObjectOf({"servers", "hosts"});
    servers_ = TextOf(httpdns->Find("servers"));
    if (const auto hosts = httpdns->Find("hosts")) hosts_ = hosts->Object().json();
  }
  if (const auto faults = file.Find("faults")) {
    faults->ObjectOf({"/lbs/conf.jsp", "/httpdns/v2/s", "/httpdns/v2/d"});
    for (const CheckedJson& fault : faults->Members()) faults_[fault.key()] = ReadFault(fault);
  }
  if (const auto names = file.Find("wrong_certificate")) wrong_certificate_ = names->Strings();
}

Fault Answers::FaultOf(const std::string& url_path) const {
  if (fault_of_all_) return *fault_of_all_;
  const auto found = faults_.find(url_path);
  return found == faults_.end() ? Fault() : found->second;
}

std::string Answers::HttpDNSHosts(const std::string& asked) const {
  Json data = Json::object();
  for (const std::string& host : zo_base::Split(asked, ",")) {
    if (hosts_.contains(host)) data[host] = hosts_[host];
  }
  return tarvel_terminal::JsonText({{"code", 200}, {"data", data}});
}

bool Answers::HasWrongCertificate(const std::string& server_name) const {
  return std::any_of(wrong_certificate_.begin(), wrong_certificate_.end(),
                     [&](const std::string& name) { return name == "*" || name == server_name; });
}

Answers ReadAnswers(const std::string& path) {
  const Json file = ReadJsonFile(path);
  try {
    return Answers(CheckedJson(file));
  } catch (const std::exception& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

}  // namespace tarvel_backend
