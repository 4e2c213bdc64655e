#include "tarvel/http_agent/http_dns/httpdns_host_resolver.h"

#include <chrono>
#include <utility>

#include "base/log/log.h"
#include "base/object/weakly.h"
#include "base/process/forked_child.h"
#include "base/text/strings.h"
#include "network/url/host_rules.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::CanBeAskedFor;
using WQBASE::network::kLongestHost;
using WQBASE::network::kMostAddresses;
using zo_base::TrueOrFalse;
using zo_base::Weakly;

// How long answers are gathered before the file is written. A killed process loses the answers of
// this time; a shorter time would write the file more often.
constexpr std::chrono::milliseconds kGatheringTime{1'000};

std::string Joined(const std::vector<std::string>& texts) { return zo_base::Join(texts, "|"); }

void LogQuery(zo_net::AddressFamily family, const std::vector<std::string>& hosts) {
  std::string list;
  for (const std::string& host : hosts) list.append("host :").append(host).append("\r\n");
  ZO_LOG << "[http dns] DoQuery ip_family: " << family
         << "\r\nhost list :\r\n-----------------------------\r\n"
         << list << "-----------------------------";
}

void LogGrade(const std::string& host, HttpDNSGrade grade,
              const std::vector<std::string>& addresses) {
  const bool hit = grade != HttpDNSGrade::kExpired;
  ZO_LOG << "[http dns] Check cached host: " << host << " res: " << NameOf(grade)
         << (hit ? " ret:" + Joined(addresses) : std::string());
}

}  // namespace

HttpDNSHostResolver::HttpDNSHostResolver(zo_base::WallClock wall_clock,
                                         std::shared_ptr<zo_base::ITaskLoop> task_loop,
                                         std::shared_ptr<HttpDNSServerUpdater> servers)
    : wall_clock(wall_clock),
      task_loop(std::move(task_loop)),
      servers(std::move(servers)),
      host_cache_file([this](const std::string& host, const std::string& text) {
        return host_cache.Load(host, text, this->wall_clock());
      }) {}

void HttpDNSHostResolver::DoQuery(const Query& query, bool cache_only) {
  loop_thread.AssertSameThread();
  LogQuery(query.family, query.hosts);
  const CacheReport report = CheckCache(query, cache_only);
  if (!report.sync_hosts.empty()) QueryAfterUpdate(query, report);
  if (!report.async_hosts.empty()) {
    ZO_LOG << "[http dns] Check cached need update type = async host list : "
           << Joined(report.async_hosts);
    UpdateCache(query.family, report.async_hosts, nullptr, query.context);
  }
  if (report.sync_hosts.empty()) query.callback(report.result);
}

HttpDNSHostResolver::CacheReport HttpDNSHostResolver::CheckCache(const Query& query,
                                                                 bool cache_only) const {
  CacheReport report;
  const std::int64_t now = wall_clock();
  for (const std::string& host : query.hosts) {
    std::vector<std::string> addresses;
    const HttpDNSGrade grade = host_cache.Check(query.family, host, now, addresses);
    LogGrade(host, grade, addresses);
    const bool is_good = grade == HttpDNSGrade::kGood, is_stale = grade == HttpDNSGrade::kStale;
    if (is_good || (is_stale && !cache_only)) report.result[host] = std::move(addresses);
    if (is_good || cache_only || !CanBeAskedFor(host)) continue;
    (is_stale ? report.async_hosts : report.sync_hosts).push_back(host);
  }
  return report;
}

// Asks for the hosts that the cache doesn't know, and then looks them up in the cache again.
void HttpDNSHostResolver::QueryAfterUpdate(Query query, const CacheReport& report) {
  ZO_LOG << "[http dns] Check cached need update type = sync host list : "
         << Joined(report.sync_hosts);
  query.hosts = report.sync_hosts;
  query.callback = [known = report.result,
                    callback = std::move(query.callback)](HostCacheResult found) {
    found.insert(known.begin(), known.end());
    return callback(found);
  };
  const auto look_again = [query](auto& self, bool) {
    ZO_LOG << "[http dns] Sync update return,do query agin";
    self.task_loop->PostTask(
        Weakly(&self, [query](auto& resolver) { resolver.DoQuery(query, true); }));
  };
  UpdateCache(query.family, query.hosts, Weakly(this, look_again), query.context);
}

void HttpDNSHostResolver::UpdateCache(zo_net::AddressFamily family, const Hosts& hosts,
                                      const UpdateCallback& done,
                                      const MultipleURLHttpRequestContext& context) {
  if (hosts.empty()) return;
  task_loop->PostTask(Weakly(this, [family, hosts, done, context](auto& self) {
    const auto config = self.GetEnvironmentConfig();
    if (config == nullptr) return;
    const auto check = [hosts](auto, auto code, const auto&, const auto& body, auto& error) {
      return CheckDResponse(code, body, hosts, error);
    };
    const auto on_result = [done](auto& resolver, bool success, const auto&... answer) {
      resolver.OnHosts(success, answer...);
      if (done) done(success);
    };
    MultipleURLHttpRequest request =
        MakeDRequest(*config, family, self.servers->GetServerList(family), hosts, context);
    SetCallbacks(request, check, Weakly(&self, on_result));
    ZO_LOG << "[http dns] Begin query hosts`s ips";
    self.InvokeHttpRequest(request, false);
  }));
}

void HttpDNSHostResolver::OnHosts(bool success, const std::string& body,
                                  const std::optional<HttpDNSHostUpdates>& updates) {
  ZO_LOG << "[http dns] Query hosts`s ip success = " << TrueOrFalse(success)
         << "\r\n-----------------------\r\n"
         << body << "\r\n-----------------------";
  ZO_LOG << (success ? "[http dns] Query hosts`s ip success" : "[http dns] Query hosts`s ip fail");
  if (!success || !updates) return;
  agent_thread.AssertSameThread();
  host_cache.SetEntries(*updates, wall_clock());
  SaveSoon();
}

void HttpDNSHostResolver::SaveSoon() {
  if (must_save.exchange(true)) return;
  // The delayed task runs under a lock of its thread, so it leaves the writing to a normal task.
  const auto post = [](auto& self) {
    self.task_loop->PostTask(Weakly(&self, [](auto& resolver) { resolver.SaveRecentHosts(); }));
  };
  task_loop->PostDelayedTask(kGatheringTime.count(), Weakly(this, post));
}

void HttpDNSHostResolver::SaveRecentHosts() {
  loop_thread.AssertSameThread();
  if (zo_base::InForkedChild()) return;  // A log function may have forked this thread.
  // Cleared first: an answer that comes during the save needs another one.
  if (must_save.exchange(false)) SaveCache();
}

// A full cache fits the file. There an entry is its host, which needs no escapes, and its text, in
// which each quote gets a backslash: 8 in the keys and 2 for each address. Four quotes, a colon and
// a comma are added.
static_assert(HttpDNSHostCache::kMostHosts *
                  (kLongestHost + HttpDNSHostCache::kLongestText + 8 + 4 * kMostAddresses + 6) <
              zo_base::CachedKeyValueFile::kLongestFile);

void HttpDNSHostResolver::SaveCache() {
  const auto texts = host_cache.Dump();
  const auto set_all = [&] {
    for (const auto& [host, text] : texts) host_cache_file.Set(host, text);
  };
  set_all();
  // Entries that memory has dropped stay in the file while the next start can read it as a whole.
  if (host_cache_file.Size() > HttpDNSHostCache::kMostHosts ||
      host_cache_file.FileSize() > zo_base::CachedKeyValueFile::kLongestFile) {
    host_cache_file.Clear(false);
    set_all();
  }
  host_cache_file.Save();
}

void HttpDNSHostResolver::LoadCache(const std::string& path) {
  // The filter of the file moves each entry into the cache in memory.
  host_cache_file.Load(path);
  if (host_cache_file.Size() == 0) host_cache.Clear();  // The file as a whole wasn't usable.
}

}  // namespace zo_tarvel
