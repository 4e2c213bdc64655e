#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/text/strings.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/http_agent/http_dns/httpdns_sdk.h"
#include "tools/cli/command_scope.h"
#include "tools/cli/commands.h"
#include "tools/cli/own_life.h"

namespace tarvel_cli {

namespace {

using zo_base::json11::Json;
using Hosts = std::vector<std::string>;

constexpr std::chrono::milliseconds kLookForStop{50};

// An HTTPDNS manager of its own, in an environment without one.
class Resolver {
 public:
  explicit Resolver(const ClientOptions& options) {
    id_ = zo_tarvel::StartTarvelEnvironment(EnvironmentSettings(options));
    if (id_ == 0) throw std::runtime_error("the environment can't be started");
    manager_->SetEnvironmentConfig(zo_tarvel::GetConfig());
    if (manager_->Init()) return;
    zo_tarvel::ExitTarvelEnvironment(id_);
    throw std::runtime_error("HTTPDNS can't be started");
  }
  ~Resolver() {
    manager_->Stop();
    zo_tarvel::ExitTarvelEnvironment(id_);
  }
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  // Sends one query for each host: an answer for several is refused as a whole when one of them is
  // unknown. Returns when all have ended, the time is over or the user wants to stop.
  void Query(zo_net::AddressFamily family, const Hosts& hosts, std::chrono::duration<double> limit,
             const StopSignals& stop) {
    const auto ended = std::make_shared<std::counting_semaphore<>>(0);
    for (const std::string& host : hosts) {
      const auto end_one = [ended](const zo_tarvel::HostCacheResult&) {
        ended->release();
        return true;
      };
      manager_->InvokeQuery(family, {host}, end_one, {});
    }
    const auto end = std::chrono::steady_clock::now() + limit;
    for (std::size_t left = hosts.size();
         left > 0 && std::chrono::steady_clock::now() < end && !stop.HaveCome();) {
      if (ended->try_acquire_for(kLookForStop)) --left;
    }
  }

  struct Entry {
    zo_tarvel::HttpDNSGrade grade = zo_tarvel::HttpDNSGrade::kExpired;
    std::vector<std::string> addresses;
    double good_seconds = 0;  // Both count from now.
    double usable_seconds = 0;
  };
  Entry Find(zo_net::AddressFamily family, const std::string& host) const {
    const auto& cache = manager_->GetHostCache();
    const auto now = zo_base::WallClockMilliseconds();
    Entry entry;
    entry.grade = cache.Check(family, host, now, entry.addresses);
    if (const auto times = cache.Find(host)) {
      entry.good_seconds = Seconds(times->expired_time - now);
      entry.usable_seconds = Seconds(times->cache_expired_time - now);
    }
    return entry;
  }

 private:
  static double Seconds(std::int64_t milliseconds) {
    return std::max(0.0, static_cast<double>(milliseconds) / 1000);
  }

  int id_ = 0;
  const std::shared_ptr<zo_tarvel::HttpDNSManager> manager_ =
      std::make_shared<zo_tarvel::HttpDNSManager>();
};

const char* SourceOf(bool was_cached, bool resolved) {
  if (was_cached) return "cache";
  return resolved ? "server" : "none";
}

// Says why HTTPDNS has no address for the host, as far as the log of this process tells.
std::string WhyUnknown(const std::string& host, const tarvel_inspect::Report& report) {
  using tarvel_inspect::Request;
  if (report.lives.empty()) return {};
  std::string of_servers;
  for (const Request& request : report.lives.back().requests) {
    const bool is_of_host =
        request.purpose == Request::Purpose::kHosts && request.asked_hosts == host;
    for (const auto& attempt : request.first.attempts) {
      if (attempt.good || !attempt.end) continue;
      std::string reason =
          attempt.url + ": " + attempt.reason +
          (attempt.code == 0 ? "" : " (status " + std::to_string(attempt.code) + ")");
      // The last URL's reason stands for all of them.
      if (is_of_host && &attempt == &request.first.attempts.back()) return reason;
      if (request.purpose == Request::Purpose::kServers) of_servers = reason;
    }
  }
  return of_servers.empty() ? "no server has answered in this time" : of_servers;
}

bool PrintHost(Printer& printer, const std::string& host, const Resolver::Entry& before,
               const Resolver::Entry& after, const std::string& reason) {
  // The client uses a stale entry as it is, and renews it in the background.
  const bool was_cached = before.grade != zo_tarvel::HttpDNSGrade::kExpired;
  const Resolver::Entry& entry = was_cached ? before : after;
  const bool resolved = entry.grade != zo_tarvel::HttpDNSGrade::kExpired;
  char times[80] = "";
  if (resolved) {
    std::snprintf(times, sizeof times, "  good for %.1f s, usable for %.1f s", entry.good_seconds,
                  entry.usable_seconds);
  }
  const std::string source = SourceOf(was_cached, resolved);
  const std::string text =
      host + "  " + NameOf(entry.grade) + "  " +
      (resolved ? zo_base::Join(entry.addresses, " ") + "  from the " + source : reason) + times;
  printer.Print(
      "host", text,
      {{"host", host},
       {"grade", NameOf(entry.grade)},
       {"addresses",
        resolved ? Json::array(entry.addresses.begin(), entry.addresses.end()) : Json::array()},
       {"source", source},
       {"reason", resolved ? "" : reason},
       {"good_seconds", entry.good_seconds},
       {"usable_seconds", entry.usable_seconds}});
  return resolved;
}

}  // namespace

int Resolve(ResolveOptions options) {
  CommandScope scope(options.client);
  const auto family = FamilyOf(options.client);
  Resolver resolver(options.client);
  std::map<std::string, Resolver::Entry> before;
  for (const std::string& host : options.hosts) before[host] = resolver.Find(family, host);
  resolver.Query(family, options.hosts, std::chrono::duration<double>(options.wait_seconds),
                 scope.stop);
  if (const int interrupted = scope.stop.ExitStatus()) return interrupted;
  const auto report = InspectOwnLife(options.client);
  bool all = true;
  for (const std::string& host : options.hosts) {
    const bool is_known = PrintHost(scope.printer, host, before[host], resolver.Find(family, host),
                                    WhyUnknown(host, report));
    all = all && is_known;
  }
  return all ? kDone : kUnresolved;
}

}  // namespace tarvel_cli
