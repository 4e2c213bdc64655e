#include "tools/backend/lab/plan.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

#include "base/text/strings.h"
#include "tools/backend/json_file.h"
#include "tools/backend/lab/dns_message.h"
#include "tools/backend/lab/timeline_file.h"

namespace tarvel_backend {

namespace {

constexpr char kDefaultNameServer[] = "192.0.2.53";
constexpr std::size_t kMostAddresses = 8;   // An answer with more doesn't fit into a DNS packet.
constexpr std::size_t kMostListeners = 32;  // Each may have 64 threads.
constexpr int kHighestPort = 65'535;
constexpr int kHttpPort = 80;
constexpr int kHttpsPort = 443;

Address ReadAddress(const CheckedJson& member) {
  const auto address = Address::FromText(member.String());
  if (!address || !address->IsForHosts()) {
    member.Refuse(std::string("an IP address outside of ") + kProgramNetworkV4 + " and " +
                  kProgramNetworkV6 + ", no loopback, link-local or multicast one");
  }
  return *address;
}

std::vector<Address> ReadAddresses(const CheckedJson& list) {
  std::vector<Address> addresses;
  for (const CheckedJson& element : list.Elements()) addresses.push_back(ReadAddress(element));
  if (addresses.empty() || addresses.size() > kMostAddresses) {
    list.Refuse("a list of 1 to " + std::to_string(kMostAddresses) + " addresses");
  }
  return addresses;
}

std::string LowerHostName(const CheckedJson& member, std::string name) {
  if (!IsHostName(name) || Address::FromText(name)) member.Refuse("a host name");
  zo_base::ToLower(name);
  return name;
}

std::optional<int> ReadPort(const CheckedJson& host, const char* scheme) {
  const auto member = host.Find(scheme);
  if (!member) return std::nullopt;
  return static_cast<int>(member->Number(1, kHighestPort));
}

void ReadPorts(const CheckedJson& member, HostPlan& host) {
  host.http = ReadPort(member, "http");
  host.https = ReadPort(member, "https");
  if (!host.http && !host.https) {
    host.http = kHttpPort;
    host.https = kHttpsPort;
  }
  if (host.http == host.https) member.Get("https").Refuse("another port than that of http");
}

CertificateKind ReadCertificateKind(const CheckedJson& member) {
  const std::string kind = member.String();
  if (kind == "right") return CertificateKind::kRight;
  if (kind == "untrusted") return CertificateKind::kUntrusted;
  if (kind == "wrong name") return CertificateKind::kWrongName;
  member.Refuse(R"("right", "untrusted" or "wrong name")");
}

HostPlan ReadHost(const CheckedJson& member, const Answers& common_answers) {
  member.ObjectOf({"addresses", "names", "http", "https", "certificate", "answers"});
  HostPlan host;
  host.name = LowerHostName(member, member.key());
  host.names.push_back(host.name);
  if (const auto names = member.Find("names")) {
    for (const CheckedJson& name : names->Elements()) {
      host.names.push_back(LowerHostName(name, name.String()));
    }
  }
  host.addresses = ReadAddresses(member.Get("addresses"));
  ReadPorts(member, host);
  if (const auto kind = member.Find("certificate")) host.certificate = ReadCertificateKind(*kind);
  const auto answers = member.Find("answers");
  host.answers = answers ? Answers(*answers) : common_answers;
  return host;
}

// What no second host may have.
struct InUse {
  Address name_server;
  std::set<std::string> names;
  std::set<std::pair<Address, int>> listeners;
};

void Take(const HostPlan& host, const CheckedJson& member, InUse& in_use) {
  for (const std::string& name : host.names) {
    if (!in_use.names.insert(name).second) member.Refuse("the only one with the name " + name);
  }
  for (const Address& address : host.addresses) {
    if (address.text() == in_use.name_server.text()) {
      member.Get("addresses").Refuse("free: the name server has " + address.text());
    }
    for (const auto& port : {host.http, host.https}) {
      if (!port || in_use.listeners.emplace(address, *port).second) continue;
      member.Get("addresses")
          .Refuse("free: " + address.text() + " is in use on port " + std::to_string(*port));
    }
  }
}

std::vector<HostPlan> ReadHosts(const CheckedJson& file, const Address& name_server) {
  const auto answers = file.Find("answers");
  const Answers common_answers = answers ? Answers(*answers) : Answers();
  const CheckedJson members = file.Get("hosts");
  std::vector<HostPlan> hosts;
  InUse in_use{name_server, {}, {}};
  for (const CheckedJson& member : members.Members()) {
    hosts.push_back(ReadHost(member, common_answers));
    Take(hosts.back(), member, in_use);
  }
  if (in_use.listeners.size() > kMostListeners) {
    members.Refuse("on " + std::to_string(kMostListeners) + " pairs of address and port at most");
  }
  return hosts;
}

AddressesOfNames ReadNames(const CheckedJson& name_server, const char* key) {
  AddressesOfNames names;
  const auto member = name_server.Find(key);
  if (!member) return names;
  for (const CheckedJson& name : member->Members()) {
    names[LowerHostName(name, name.key())] = ReadAddresses(name);
  }
  return names;
}

NameServerPlan ReadNameServer(const CheckedJson& file) {
  NameServerPlan plan{Address::FromText(kDefaultNameServer).value(), {}, {}};
  if (const auto member = file.Find("name_server")) {
    member->ObjectOf({"address", "names", "poisoned"});
    if (const auto address = member->Find("address")) plan.address = ReadAddress(*address);
    plan.names = ReadNames(*member, "names");
    plan.poisoned = ReadNames(*member, "poisoned");
  }
  return plan;
}

// The name server's own names come first.
void AddNames(const std::vector<HostPlan>& hosts, NameServerPlan& name_server) {
  for (const HostPlan& host : hosts) {
    for (const std::string& name : host.names) name_server.names.emplace(name, host.addresses);
  }
}

Plan ReadPlan(const CheckedJson& file) {
  file.ObjectOf({"answers", "hosts", "name_server", "timeline"});
  NameServerPlan name_server = ReadNameServer(file);
  std::vector<HostPlan> hosts = ReadHosts(file, name_server.address);
  AddNames(hosts, name_server);
  std::vector<Event> timeline;
  if (const auto member = file.Find("timeline")) timeline = ReadTimeline(*member, hosts);
  return {std::move(hosts), std::move(name_server), std::move(timeline)};
}

}  // namespace

std::string ToText(const HostEvent& event) {
  if (event.reachability == Reachability::kDropsPackets) return "drops packets";
  if (event.reachability == Reachability::kStopped) return "stops";
  const std::string fault = ToText(event.fault.value_or(Fault()));
  return fault.empty() ? "is well" : "fault: " + fault;
}

Plan ReadPlan(const std::string& path) {
  const Json file = ReadJsonFile(path);
  try {
    return ReadPlan(CheckedJson(file));
  } catch (const std::exception& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

}  // namespace tarvel_backend
