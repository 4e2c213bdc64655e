#include "tools/inspect/caches.h"

#include <tarvel/tarvel.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/json/json11.h"
#include "base/text/numbers.h"
#include "business/tarvel_lbs/lbs_answer.h"
#include "business/tarvel_lbs/lbs_response.h"
#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"
#include "tarvel/http_agent/http_dns/httpdns_server_list.h"
#include "tools/inspect/client_file.h"
#include "tools/inspect/log_texts.h"

namespace tarvel_inspect {
namespace {

using zo_base::json11::Json;
namespace lbs_key = zo_tarvel::lbs_key;

constexpr std::size_t kLongestFile = 64 << 20;  // As the library reads it.
constexpr std::size_t kMostShown = 10'000;      // Addresses, hosts.

// Reads a flat JSON object; null, and why, if there is none.
template <class Cache>
Json ReadObject(const std::string& path, Cache& cache) {
  ClientFile file = ReadClientFile(path, kLongestFile);
  cache.written_at = file.written_at;
  cache.problem = std::move(file.problem);
  if (!file.content && cache.problem.empty()) return {};
  cache.state = CacheState::kUnusable;
  if (!file.content) return {};
  std::string error;
  Json object = Json::parse(*file.content, error);
  if (object.is_object()) return object;
  cache.problem = "it holds no JSON object";
  return {};
}

// A number, or a text that is one.
std::int64_t MomentIn(const Json& object, const char* key) {
  const Json& value = object[key];
  constexpr std::int64_t kLatest = 253'402'300'799'000;  // The end of the year 9999.
  const auto moment = value.is_string()
                          ? zo_base::ReadNumber<std::int64_t>(value.string_value(), 0)
                          : zo_base::SaturatedCast<std::int64_t>(value.number_value());
  return std::clamp<std::int64_t>(moment, 0, kLatest);
}

const char* FamilyName(const std::string& number) {
  if (number == "0") return "any";
  return number == "2" ? "IPv6" : "IPv4";
}

std::vector<std::string> Texts(const std::vector<zo_tarvel::LinkAddress>& links) {
  std::vector<std::string> texts;
  texts.reserve(links.size());
  for (const auto& link : links) texts.push_back(Clean(link.text));
  return texts;
}

AnswerCache ReadAnswer(const std::string& directory) {
  AnswerCache cache;
  const Json file = ReadObject(directory + "/lbs/lbs.data", cache);
  if (!file.is_object()) return cache;
  cache.settings_url = CleanUrl(file[lbs_key::kRootAddr].string_value());
  cache.next_url = CleanUrl(file[lbs_key::kRuntimeLBS].string_value());
  std::string error;
  const Json backups = Json::parse(file[lbs_key::kBackupAddr].string_value(), error);
  for (const Json& url : backups.array_items()) {
    if (cache.backup_urls.size() == kMostShown) break;
    cache.backup_urls.push_back(CleanUrl(url.string_value()));
  }
  cache.family = FamilyName(file[lbs_key::kIPVersion].string_value());
  cache.expires_at = MomentIn(file, lbs_key::kExpireTime);
  const auto parsed = zo_tarvel::ParseLBSAnswer(file[lbs_key::kRsp].string_value());
  if (parsed.answer) {
    cache.name = Clean(parsed.answer->name);
    cache.is_local = parsed.answer->desc == zo_tarvel::kGeneratedLocally;
    cache.links = Texts(parsed.answer->link);
    cache.default_links = Texts(parsed.answer->default_link);
  }
  cache.problem = Clean(parsed.error);
  if (cache.settings_url.empty() || cache.next_url.empty()) cache.problem = "it names no LBS URL";
  if (cache.problem.empty()) cache.state = CacheState::kUsable;
  return cache;
}

ServerCache ReadServers(const std::string& directory) {
  ServerCache cache;
  const Json file = ReadObject(directory + "/http_dns/http_server_cache.data", cache);
  if (!file.is_object()) return cache;
  cache.host = Clean(file["host"].string_value());
  cache.expires_at = MomentIn(file, "expired_time");
  for (const char* const family : {"ipv4", "ipv6"}) {
    std::string error;
    const Json list = Json::parse(file[family].string_value(), error);
    for (const auto& server : zo_tarvel::ReadServers(list, false)) {
      cache.servers.push_back(Clean((server.https ? "https://" : "http://") + AuthorityOf(server)));
    }
  }
  if (cache.host.empty() || cache.servers.empty()) {
    cache.problem = "it names no service or no server";
  } else {
    cache.state = CacheState::kUsable;
  }
  return cache;
}

HostCache ReadHosts(const std::string& directory, std::int64_t now) {
  HostCache cache;
  const Json file = ReadObject(directory + "/http_dns/http_dns_cache.data", cache);
  if (!file.is_object()) return cache;
  cache.state = CacheState::kUsable;
  zo_tarvel::HttpDNSHostCache loaded;
  for (const auto& [host, text] : file.object_items()) {
    if (cache.hosts.size() == kMostShown) break;
    CachedHost entry;
    entry.host = Clean(host);
    std::string error;
    entry.expires_at = MomentIn(Json::parse(text.string_value(), error), "cache_expired_time");
    const bool is_usable = loaded.Load(host, text.string_value(), now);
    std::vector<std::string> addresses;
    entry.grade = is_usable ? NameOf(loaded.Check(zo_net::kAddressFamilyAny, host, now, addresses))
                            : "unusable";
    for (const std::string& address : addresses) entry.addresses.push_back(Clean(address));
    cache.hosts.push_back(std::move(entry));
  }
  return cache;
}

}  // namespace

Caches ReadCaches(const std::string& directory, std::int64_t now) {
  return {ReadAnswer(directory), ReadServers(directory), ReadHosts(directory, now)};
}

}  // namespace tarvel_inspect
