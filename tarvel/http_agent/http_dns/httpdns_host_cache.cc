#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "base/json/json11.h"
#include "base/text/numbers.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::CanBeAskedFor;
using WQBASE::network::LiteralsOf;
using zo_base::MutexLock;
using zo_base::json11::Json;
using zo_base::json11::ToJson;

// Shares of the time to live.
constexpr double kGoodShare = 0.75;
constexpr double kUsableShare = 0.9;

// Limits of the time to live of an entry from the file, in milliseconds.
constexpr std::int64_t kShortestLoadedTtl = 3'000;
constexpr std::int64_t kLongestLoadedTtl = 300'000;

std::int64_t Share(double share, std::int32_t ttl_ms) {
  return static_cast<std::int64_t>(share * ttl_ms);
}

std::string ToText(const HttpDNSCacheEntry& entry) {
  return Json(Json::object{
                  {"ttl", entry.ttl_ms},
                  {"cache_expired_time", static_cast<long long>(entry.cache_expired_time)},
                  {"ipv4", ToJson(entry.ipv4)},
                  {"ipv6", ToJson(entry.ipv6)},
              })
      .dump();
}

}  // namespace

const char* NameOf(HttpDNSGrade grade) {
  if (grade == HttpDNSGrade::kExpired) return "expired";
  return grade == HttpDNSGrade::kGood ? "good" : "stale";
}

HttpDNSGrade HttpDNSHostCache::Check(zo_net::AddressFamily family, const std::string& host,
                                     std::int64_t now, std::vector<std::string>& addresses) const {
  MutexLock hold(lock_);
  addresses.clear();
  const auto found = entries_.find(host);
  if (found == entries_.end()) return HttpDNSGrade::kExpired;
  const HttpDNSCacheEntry& entry = found->second;
  if (family != zo_net::kAddressFamilyIPv6) addresses = entry.ipv4;
  if (family != zo_net::kAddressFamilyIPv4) {
    addresses.insert(addresses.end(), entry.ipv6.begin(), entry.ipv6.end());
  }
  if (addresses.empty() || now < entry.updated_at || now >= entry.cache_expired_time) {
    return HttpDNSGrade::kExpired;
  }
  return now < entry.expired_time ? HttpDNSGrade::kGood : HttpDNSGrade::kStale;
}

std::optional<HttpDNSCacheEntry> HttpDNSHostCache::Find(const std::string& host) const {
  MutexLock hold(lock_);
  const auto found = entries_.find(host);
  return found == entries_.end() ? std::nullopt : std::optional(found->second);
}

void HttpDNSHostCache::SetEntry(HttpDNSCacheEntry update, std::int64_t now, bool no_good_period) {
  update.updated_at = now;
  update.expired_time = no_good_period ? now : now + Share(kGoodShare, update.ttl_ms);
  update.cache_expired_time = now + Share(kUsableShare, update.ttl_ms);
  MutexLock hold(lock_);
  HttpDNSCacheEntry& entry = entries_[update.host];
  if (update.ipv4.empty()) update.ipv4 = std::move(entry.ipv4);
  if (update.ipv6.empty()) update.ipv6 = std::move(entry.ipv6);
  entry = std::move(update);
}

void HttpDNSHostCache::SetEntries(const std::vector<HttpDNSCacheEntry>& updates, std::int64_t now) {
  MutexLock hold(lock_);
  MakeRoomFor(updates);
  for (const HttpDNSCacheEntry& update : updates) SetEntry(update, now, false);
}

void HttpDNSHostCache::MakeRoomFor(const std::vector<HttpDNSCacheEntry>& updates) {
  if (entries_.size() + updates.size() <= kMostHosts) return;
  std::set<std::string_view> named;
  std::size_t added = 0;
  for (const HttpDNSCacheEntry& update : updates) {
    if (named.insert(update.host).second) added += 1 - entries_.count(update.host);
  }
  if (entries_.size() + added <= kMostHosts) return;
  std::vector<Entries::iterator> others;
  for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
    if (named.count(entry->first) == 0) others.push_back(entry);
  }
  const auto middle = others.begin() + static_cast<std::ptrdiff_t>(others.size() / 2);
  std::nth_element(others.begin(), middle, others.end(), [](const auto& a, const auto& b) {
    return a->second.cache_expired_time < b->second.cache_expired_time;
  });
  for (auto oldest = others.begin(); oldest <= middle; ++oldest) entries_.erase(*oldest);
}

std::map<std::string, std::string> HttpDNSHostCache::Dump() const {
  Entries entries;
  {
    MutexLock hold(lock_);
    entries = entries_;  // A copy is made sooner than the texts, so SetEntries waits less.
  }
  std::map<std::string, std::string> texts;
  for (const auto& [host, entry] : entries) texts.emplace(host, ToText(entry));
  return texts;
}

bool HttpDNSHostCache::Load(const std::string& host, const std::string& text, std::int64_t now) {
  if (!CanBeAskedFor(host) || text.size() > kLongestText) return false;
  MutexLock hold(lock_);
  if (entries_.size() >= kMostHosts && entries_.count(host) == 0) return false;
  std::string error;
  const Json json = Json::parse(text, error);
  HttpDNSCacheEntry update{.host = host,
                           .ipv4 = LiteralsOf(zo_net::kAddressFamilyIPv4, TextsOf(json["ipv4"])),
                           .ipv6 = LiteralsOf(zo_net::kAddressFamilyIPv6, TextsOf(json["ipv6"]))};
  if (update.ipv4.empty() && update.ipv6.empty()) return false;
  const double remaining = json["cache_expired_time"].number_value() - static_cast<double>(now);
  const auto limited = zo_base::SaturatedCast<std::int64_t>(remaining);
  update.ttl_ms =
      static_cast<std::int32_t>(std::clamp(limited, kShortestLoadedTtl, kLongestLoadedTtl));
  entries_.erase(host);  // Two entries of one host in a file must not be merged.
  SetEntry(std::move(update), now, limited < kShortestLoadedTtl);
  return true;
}

void HttpDNSHostCache::Clear() {
  MutexLock hold(lock_);
  entries_.clear();
}

}  // namespace zo_tarvel
