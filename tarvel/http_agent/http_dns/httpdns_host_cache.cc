#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"

#include <algorithm>
#include <utility>

#include "base/json_texts.h"
#include "base/saturated_cast.h"
#include "tarvel/http_agent/http_dns/hostile_texts.h"

namespace zo_tarvel {
namespace {

using zo_base::MutexLock;
using zo_base::json11::Json;
using zo_base::json11::ToJson;

// Shares of the time to live.
constexpr double kGoodShare = 0.75;
constexpr double kUsableShare = 0.9;

// Limits of the life of an entry that comes back from the file, in milliseconds.
constexpr std::int64_t kShortestLoadedTtl = 3'000;
constexpr std::int64_t kLongestLoadedTtl = 300'000;

std::int64_t Share(double share, std::int32_t ttl_ms) {
  return static_cast<std::int64_t>(share * ttl_ms);
}

void ReplaceUnlessEmpty(std::vector<std::string>& list, std::vector<std::string> replacement) {
  if (!replacement.empty()) list = std::move(replacement);
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
  switch (grade) {
    case HttpDNSGrade::kGood:
      return "good";
    case HttpDNSGrade::kStale:
      return "stale";
    default:
      return "expired";
  }
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

void HttpDNSHostCache::SetEntry(const Update& update, std::int64_t now, bool no_good_period) {
  auto ipv4 = LiteralsOf(zo_net::kAddressFamilyIPv4, update.ipv4);
  auto ipv6 = LiteralsOf(zo_net::kAddressFamilyIPv6, update.ipv6);
  MutexLock hold(lock_);
  if (entries_.size() >= kMostHosts && entries_.count(update.host) == 0) MakeRoom();
  HttpDNSCacheEntry& entry = entries_[update.host];
  entry.host = update.host;
  entry.ttl_ms = update.ttl_ms;
  entry.updated_at = now;
  entry.expired_time = no_good_period ? now : now + Share(kGoodShare, update.ttl_ms);
  entry.cache_expired_time = now + Share(kUsableShare, update.ttl_ms);
  ReplaceUnlessEmpty(entry.ipv4, std::move(ipv4));
  ReplaceUnlessEmpty(entry.ipv6, std::move(ipv6));
}

void HttpDNSHostCache::MakeRoom() {
  std::vector<std::int64_t> ends;
  for (const auto& [host, entry] : entries_) ends.push_back(entry.cache_expired_time);
  const auto middle = ends.begin() + static_cast<std::ptrdiff_t>(ends.size() / 2);
  std::nth_element(ends.begin(), middle, ends.end());
  // Of many with the same end only as many as that makes half.
  std::size_t left = ends.size() / 2 + 1;
  for (auto entry = entries_.begin(); entry != entries_.end() && left != 0;) {
    const bool goes = entry->second.cache_expired_time <= *middle;
    if (goes) --left;
    entry = goes ? entries_.erase(entry) : std::next(entry);
  }
}

std::map<std::string, std::string> HttpDNSHostCache::Dump() const {
  MutexLock hold(lock_);
  std::map<std::string, std::string> texts;
  for (const auto& [host, entry] : entries_) texts.emplace(host, ToText(entry));
  return texts;
}

bool HttpDNSHostCache::Load(const std::string& host, const std::string& text, std::int64_t now) {
  std::string error;
  const Json json = Json::parse(text, error);
  Update update{host, TextsOf(json["ipv4"]), TextsOf(json["ipv6"]), 0};
  if (LiteralsOf(zo_net::kAddressFamilyIPv4, update.ipv4).empty() &&
      LiteralsOf(zo_net::kAddressFamilyIPv6, update.ipv6).empty()) {
    return false;
  }
  const double remaining = json["cache_expired_time"].number_value() - static_cast<double>(now);
  const auto limited = zo_base::SaturatedCast<std::int64_t>(remaining);
  update.ttl_ms =
      static_cast<std::int32_t>(std::clamp(limited, kShortestLoadedTtl, kLongestLoadedTtl));
  SetEntry(update, now, limited < kShortestLoadedTtl);
  return true;
}

}  // namespace zo_tarvel
