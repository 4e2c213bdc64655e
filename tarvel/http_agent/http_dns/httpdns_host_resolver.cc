// The queries for hosts, from the cache and from the servers.

#include <utility>

#include "base/log/log.h"
#include "base/process/filesystem.h"
#include "base/text/strings.h"
#include "base/text/text_of.h"
#include "network/url/host_rules.h"
#include "tarvel/http_agent/http_dns/httpdns_messages.h"
#include "tarvel/http_agent/http_dns/httpdns_sdk.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::CanBeAskedFor;
using WQBASE::network::kLongestHost;
using WQBASE::network::kMostAddresses;
using zo_base::TextOf;

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

bool HttpDNSManager::InvokeQuery(zo_net::AddressFamily family,
                                 const std::vector<std::string>& hosts,
                                 const QueryCallback& callback,
                                 const MultipleURLHttpRequestContext& context) {
  PostTask(Weakly([query = Query{family, hosts, callback, context}](auto& self) {
    self.DoQuery(query, false);
  }));
  return true;
}

void HttpDNSManager::DoQuery(const Query& query, bool cache_only) {
  LogQuery(query.family, query.hosts);
  CacheReport report = CheckCache(query, cache_only);
  if (!report.sync_hosts.empty()) {
    ZO_LOG << "[http dns] Check cached need update type = sync host list : "
           << Joined(report.sync_hosts);
    Query rest = query;
    rest.hosts = report.sync_hosts;
    rest.callback = [known = report.result,
                     callback = query.callback](const HostCacheResult& found) {
      HostCacheResult all = found;
      all.insert(known.begin(), known.end());
      return callback(all);
    };
    const std::weak_ptr<HttpDNSManager> weak = shared_from_this<HttpDNSManager>();
    const auto look_again = [weak, rest](bool) {
      const auto living = weak.lock();
      if (living == nullptr) return;
      ZO_LOG << "[http dns] Sync update return,do query agin";
      living->PostTask(living->Weakly([rest](auto& self) { self.DoQuery(rest, true); }));
    };
    UpdateCache(query.family, report.sync_hosts, look_again, query.context);
  }
  if (!report.async_hosts.empty()) {
    ZO_LOG << "[http dns] Check cached need update type = async host list : "
           << Joined(report.async_hosts);
    UpdateCache(query.family, report.async_hosts, nullptr, query.context);
  }
  if (report.sync_hosts.empty()) query.callback(report.result);
}

HttpDNSManager::CacheReport HttpDNSManager::CheckCache(const Query& query, bool cache_only) const {
  CacheReport report;
  const std::int64_t now = wall_clock();
  for (const std::string& host : query.hosts) {
    std::vector<std::string> addresses;
    const HttpDNSGrade grade = host_cache.Check(query.family, host, now, addresses);
    LogGrade(host, grade, addresses);
    if (grade == HttpDNSGrade::kGood) {
      report.result[host] = std::move(addresses);
    } else if (cache_only) {
      continue;
    } else if (grade == HttpDNSGrade::kStale) {
      report.result[host] = std::move(addresses);
      if (CanBeAskedFor(host)) report.async_hosts.push_back(host);
    } else if (CanBeAskedFor(host)) {
      report.sync_hosts.push_back(host);
    }
  }
  return report;
}

void HttpDNSManager::UpdateCache(zo_net::AddressFamily family, const Hosts& hosts,
                                 const UpdateCallback& done,
                                 const MultipleURLHttpRequestContext& context) {
  if (hosts.empty()) return;
  PostTask(Weakly([family, hosts, done, context](auto& self) {
    self.SendDRequest(family, hosts, done, context);
  }));
}

void HttpDNSManager::SendDRequest(zo_net::AddressFamily family, const Hosts& hosts,
                                  const UpdateCallback& done,
                                  const MultipleURLHttpRequestContext& context) {
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) return;
  MultipleURLHttpRequest request;
  request.urls = MakeDUrlEntries(GetServerList(family), server_list.GetHost(), hosts);
  request.context = context;
  if (request.context.trace_id.empty()) request.context.trace_id = config->GenerateTraceId();
  request.time_out = config->single_request_timeout();
  request.multiple_time_out = config->single_request_prefail_timeout();
  request.use_http_dns_if_fail = false;  // A lookup must not depend on itself.
  request.address_family = family;
  request.check_callback = [hosts](std::int32_t, std::int32_t code, const std::string&,
                                   const std::string&, const std::string& body, std::uint64_t) {
    MultipleURLHttpRequest::CheckCallbackResult verdict;
    verdict.success = CheckDResponse(code, body, hosts, verdict.error_message);
    verdict.add_statistic = !verdict.success;
    return verdict;
  };
  request.result_callback =
      [weak = std::weak_ptr<HttpDNSManager>(shared_from_this<HttpDNSManager>()), hosts, done](
          bool, bool success, const std::string&, const std::string& body) {
        if (const auto living = weak.lock()) living->OnHosts(success, body, hosts, done);
      };
  ZO_LOG << "[http dns] Begin query hosts`s ips";
  InvokeHttpRequest(request, false);
}

void HttpDNSManager::OnHosts(bool success, const std::string& body, const Hosts& asked,
                             const UpdateCallback& done) {
  ZO_LOG << "[http dns] Query hosts`s ip success = " << TextOf(success)
         << "\r\n-----------------------\r\n"
         << body << "\r\n-----------------------";
  ZO_LOG << (success ? "[http dns] Query hosts`s ip success" : "[http dns] Query hosts`s ip fail");
  if (success) {
    host_cache.SetEntries(ReadDResponse(body, asked), wall_clock());
    SaveCache();
  }
  if (done) done(success);
}

// What is in memory always fits the file: a host takes its own length there, which needs no
// escapes, and that of its text, with a backslash before each quote: 8 of the keys and 2 of each
// address. To that come four quotes, a colon and a comma.
static_assert(HttpDNSHostCache::kMostHosts *
                  (kLongestHost + HttpDNSHostCache::kLongestText + 8 + 4 * kMostAddresses + 6) <
              zo_base::CachedKeyValueFile::kLongestFile);

void HttpDNSManager::SaveCache() {
  const auto texts = host_cache.Dump();
  const auto set_all = [&] {
    for (const auto& [host, text] : texts) host_cache_file.Set(host, text);
  };
  set_all();
  // The file keeps what memory has forgotten, as long as the next start can take all of it back.
  if (host_cache_file.Size() > HttpDNSHostCache::kMostHosts ||
      host_cache_file.FileSize() > zo_base::CachedKeyValueFile::kLongestFile) {
    host_cache_file.Clear(false);
    set_all();
  }
  host_cache_file.Save();
}

void HttpDNSManager::LoadCache() {
  const std::string directory = Directory();
  if (directory.empty()) return;
  std::error_code ignored;
  zo_base::filesystem::create_directories(directory, ignored);
  // The file keeps what the cache in memory takes, so each entry is read once.
  host_cache_file.Load(directory + "http_dns_cache.data");
  if (host_cache_file.Size() == 0) host_cache.Clear();  // Of a file that isn't usable as a whole.
}

}  // namespace zo_tarvel
