#include "tests/support/lab.h"

#include <signal.h>

#include <array>

namespace test_support {

namespace {

constexpr std::array<const char*, 3> kNames{"lbs1.lab", "lbs2.lab", "httpdns.lab"};
constexpr std::array<const char*, 3> kAddresses{"127.0.0.2", "127.0.0.3", "127.0.0.4"};
constexpr char kForeignAddress[] = "127.0.0.9";

// What all of them know. The first two addresses are those of the LBS hosts.
constexpr char kAnswers[] = R"(
 "lbs": {"common": {"name": "lab", "ttl": 3600, "lbs": "https://lbs1.lab/lbs/conf.jsp",
                    "link": ["192.0.2.11:8080"], "link.default": ["192.0.2.99:8080"]}},
 "httpdns": {"servers": {"host": "httpdns.lab", "ttl": 3600,
                         "ipv4": [{"host": "127.0.0.4", "port": 443, "https": true}]},
             "hosts": {"lbs1.lab": {"ip": ["127.0.0.2"], "ttl": 600},
                       "lbs2.lab": {"ip": ["127.0.0.3"], "ttl": 600}}})";

std::vector<std::string> Records(const std::array<const char*, 3>& addresses) {
  std::vector<std::string> records{"--local=/lab/"};
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    records.push_back(std::string("--host-record=") + kNames[i] + ',' + addresses[i]);
  }
  return records;
}

}  // namespace

Lab::Lab(const std::string& backend) : backend_(backend) {
  std::string trusted;
  for (const Host host : {kFirst, kSecond, kHttpDns}) {
    WriteAnswers(host, "");
    const std::string certificate = directory_ / (std::string(kNames[host]) + ".pem");
    StartBackend(kNames[host], kAddresses[host],
                 {"--name", kNames[host], "--write-certificate", certificate});
    trusted += ReadFile(certificate);
  }
  WriteFile(trust_store(), trusted);
  WriteFile(AnswersFileOf("foreign"), "{}");
  StartBackend("foreign", kForeignAddress, {});
  WriteFile(httpdns_servers(), R"({"host": "httpdns.lab", "expired_time": "4000000000000",
      "ipv4": "[{\"host\": \"127.0.0.4\", \"port\": 443, \"https\": true}]"})");
  name_server_.emplace(Records(kAddresses));
}

std::string Lab::UrlOf(Host host) {
  return std::string("https://").append(kNames[host]).append("/lbs/conf.jsp");
}

std::string Lab::AddressOf(Host host) { return kAddresses[host]; }

void Lab::StartBackend(const std::string& name, const std::string& address,
                       const std::vector<std::string>& options) {
  std::vector<std::string> arguments{backend_, AnswersFileOf(name), "--tls-listen",
                                     address + ":443"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  hosts_.emplace_back(arguments).AwaitOutput("listening");
}

void Lab::WriteAnswers(Host host, const std::string& faults) const {
  std::string text = "{";
  text.append(kAnswers).append(faults.empty() ? "" : ", ").append(faults).append("}");
  WriteFile(AnswersFileOf(kNames[host]), text);
}

void Lab::SetFault(Host host, const std::string& fault) {
  WriteAnswers(host, R"("faults": {"/lbs/conf.jsp": {)" + fault + "}}");
}

void Lab::ShowWrongCertificate(Host host) { WriteAnswers(host, R"("wrong_certificate": ["*"])"); }

void Lab::CutOff(Host host) {
  hosts_[host].Signal(SIGUSR1);
  hosts_[host].AwaitOutput("drops all packets");
}

void Lab::Kill(Host host) { hosts_[host].Kill(); }

void Lab::PoisonNames() {
  name_server_.reset();
  name_server_.emplace(Records({kForeignAddress, kForeignAddress, kAddresses[kHttpDns]}));
}

}  // namespace test_support
