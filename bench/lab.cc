#include "bench/lab.h"

#include <signal.h>

#include <map>
#include <vector>

namespace tarvel_bench {
namespace {

// By Host.
const std::string kNames[] = {"lbs1.lab", "lbs2.lab", "httpdns.lab", "foreign"};
const std::string kAddresses[] = {"127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.9"};

// What all hosts know.
constexpr char kAnswers[] = R"(
 "lbs": {"common": {"name": "lab", "ttl": 3600, "lbs": "https://lbs1.lab/lbs/conf.jsp",
                    "link": ["192.0.2.11:8080"], "link.default": ["192.0.2.99:8080"]}},
 "httpdns": {"servers": {"host": "httpdns.lab", "ttl": 3600,
                         "ipv4": [{"host": "127.0.0.4", "port": 443, "https": true}]},
             "hosts": {"lbs1.lab": {"ip": ["127.0.0.2"], "ttl": 600},
                       "lbs2.lab": {"ip": ["127.0.0.3"], "ttl": 600}}})";

}  // namespace

Lab::Lab(const std::string& backend) {
  std::string trusted;
  for (const Host host : {kFirst, kSecond, kHttpDns, kForeign}) {
    SetFault(host, host == kForeign ? R"("status": 404)" : "");
    const std::string certificate = directory_ / "certificate.pem";
    const std::vector<std::string> command{
        backend,  AnswersFileOf(host), "--tls-listen",        kAddresses[host] + ":443",
        "--name", kNames[host],        "--write-certificate", certificate};
    hosts_.emplace_back(command).AwaitOutput("listening");
    trusted += test_support::ReadFile(certificate);
  }
  test_support::WriteFile(trust_store(), trusted);
  test_support::WriteFile(httpdns_servers(),
                          R"({"host": "httpdns.lab", "expired_time": "4000000000000",
      "ipv4": "[{\"host\": \"127.0.0.4\", \"port\": 443, \"https\": true}]"})");
  StartNameServer(kFirst, kSecond);
}

std::string Lab::UrlOf(Host host) { return "https://" + kNames[host] + "/lbs/conf.jsp"; }

std::unique_ptr<DohServer> Lab::MakeDohServer() const {
  return std::make_unique<DohServer>(
      std::map<std::string, std::string>{{kNames[kFirst], kAddresses[kFirst]},
                                         {kNames[kSecond], kAddresses[kSecond]}},
      "127.0.0.5");
}

std::string Lab::AnswersFileOf(Host host) const { return directory_ / (kNames[host] + ".json"); }

void Lab::SetFault(Host host, const std::string& fault) const {
  const std::string faults = R"("faults": {"/lbs/conf.jsp": {)" + fault + "}}";
  test_support::WriteFile(AnswersFileOf(host),
                          std::string("{").append(kAnswers).append(", ") + faults + "}");
}

void Lab::CutOff(Host host) {
  hosts_[host].Signal(SIGUSR1);
  hosts_[host].AwaitOutput("drops all packets");
}

void Lab::StartNameServer(Host first, Host second) {
  name_server_.reset();
  const auto record = [](Host host, Host at) {
    return " --host-record=" + kNames[host] + "," + kAddresses[at];
  };
  name_server_.emplace("--local=/lab/" + record(kFirst, first) + record(kSecond, second) +
                       record(kHttpDns, kHttpDns));
}

}  // namespace tarvel_bench
