#include "tools/backend/lab/timeline_file.h"

#include <signal.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "base/text/strings.h"

namespace tarvel_backend {

namespace {

constexpr double kLongestTime = 86'400;  // A day, in seconds.
constexpr std::size_t kMostEvents = 10'000;
constexpr int kFirstRealTimeSignal = 32;

// The first process of the program's namespace passes signals on. It can't pass these on: it is
// stopped itself by the one, and waits for the other.
bool CanBePassedOn(int signal) { return signal != SIGSTOP && signal != SIGCHLD; }

int ReadSignal(const CheckedJson& member) {
  const std::string name = member.String();
  const std::string wanted = name.starts_with("SIG") ? name.substr(3) : name;
  for (int signal = 1; signal < kFirstRealTimeSignal; ++signal) {
    const char* const short_name = sigabbrev_np(signal);
    if (short_name == nullptr || wanted != short_name) continue;
    if (!CanBePassedOn(signal)) member.Refuse("another signal than SIGSTOP and SIGCHLD");
    return signal;
  }
  member.Refuse("the name of a signal, such as \"SIGUSR1\"");
}

std::string ReadHostName(const CheckedJson& member, const std::vector<HostPlan>& hosts) {
  std::string name = member.String();
  zo_base::ToLower(name);
  const bool is_known = std::any_of(hosts.begin(), hosts.end(),
                                    [&](const HostPlan& host) { return host.name == name; });
  if (!is_known) member.Refuse("the name of one of the hosts");
  return name;
}

HostEvent ReadHostEvent(const CheckedJson& event, const std::vector<HostPlan>& hosts) {
  event.ObjectOf({"at", "host", "fault"});
  const std::string host = ReadHostName(event.Get("host"), hosts);
  const CheckedJson fault = event.Get("fault");
  if (fault.json().is_object()) return {host, Reachability::kWell, ReadFault(fault)};
  if (fault.json() == "well") return {host, Reachability::kWell, {}};
  if (fault.json() == "drops packets") return {host, Reachability::kDropsPackets, {}};
  if (fault.json() == "stops") return {host, Reachability::kStopped, {}};
  fault.Refuse(R"("drops packets", "stops", "well", or an object such as {"status": 503})");
}

NameServer::State ReadNameServerEvent(const CheckedJson& event) {
  event.ObjectOf({"at", "name_server"});
  const CheckedJson state = event.Get("name_server");
  if (state.json() == "well") return NameServer::State::kWell;
  if (state.json() == "silent") return NameServer::State::kSilent;
  if (state.json() == "refuses") return NameServer::State::kRefuses;
  if (state.json() == "poisoned") return NameServer::State::kPoisoned;
  state.Refuse(R"("silent", "refuses", "poisoned" or "well")");
}

NetworkChange ReadNetworkEvent(const CheckedJson& event) {
  event.ObjectOf({"at", "network", "signal"});
  const CheckedJson network = event.Get("network");
  if (network.json() != "changes") network.Refuse("\"changes\"");
  const auto signal = event.Find("signal");
  return {signal ? std::optional(ReadSignal(*signal)) : std::nullopt};
}

AllWell ReadAllEvent(const CheckedJson& event) {
  event.ObjectOf({"at", "all"});
  const CheckedJson all = event.Get("all");
  if (all.json() != "well") all.Refuse("\"well\"");
  return {};
}

Event ReadEvent(const CheckedJson& event, const std::vector<HostPlan>& hosts) {
  event.ObjectOf({"at", "host", "fault", "name_server", "network", "signal", "all"});
  const double seconds = event.Get("at").Number(0, kLongestTime);
  const std::chrono::milliseconds at(std::lround(seconds * 1000));
  if (event.Find("host")) return {at, ReadHostEvent(event, hosts)};
  if (event.Find("name_server")) return {at, ReadNameServerEvent(event)};
  if (event.Find("network")) return {at, ReadNetworkEvent(event)};
  if (event.Find("all")) return {at, ReadAllEvent(event)};
  event.Refuse(R"(an event of one of "host", "name_server", "network" and "all")");
}

}  // namespace

std::vector<Event> ReadTimeline(const CheckedJson& timeline, const std::vector<HostPlan>& hosts) {
  std::vector<Event> events;
  for (const CheckedJson& event : timeline.Elements()) events.push_back(ReadEvent(event, hosts));
  if (events.size() > kMostEvents) {
    timeline.Refuse("a list of " + std::to_string(kMostEvents) + " events at most");
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const Event& one, const Event& other) { return one.at < other.at; });
  return events;
}

}  // namespace tarvel_backend
