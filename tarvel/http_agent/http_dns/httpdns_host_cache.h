#pragma once

#include <tarvel/tarvel.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/lock/recursive_mutex.h"
#include "network/url/host_rules.h"

namespace zo_tarvel {

// IP literals by host, IPv4 dotted and IPv6 in brackets.
using HostCacheResult = std::map<std::string, std::vector<std::string>>;

// How far an entry can be trusted.
enum class HttpDNSGrade {
  kGood,
  kStale,    // Usable, and to be refreshed in the background.
  kExpired,  // Unusable. A host that is unknown or has no address of the family is expired too.
};
const char* NameOf(HttpDNSGrade grade);

struct HttpDNSCacheEntry {
  std::string host;
  std::vector<std::string> ipv4;  // Both lists hold what LiteralsOf returns.
  std::vector<std::string> ipv6;
  std::int32_t ttl_ms = 0;
  // Set by the cache: moments of the wall clock, in milliseconds.
  std::int64_t updated_at = 0;          // The good period begins.
  std::int64_t expired_time = 0;        // The stale period begins.
  std::int64_t cache_expired_time = 0;  // The stale period ends.
};

// The addresses that HTTPDNS has given for hosts. An entry is good for three quarters of its time
// to live and stale until nine tenths, so that it is renewed before the name server's own answer
// ends. An entry from the future is expired: the clock was set back.
//
// Holds kMostHosts entries at most. When more come, it drops the half that expires first, but no
// host of the current answer.
// Threads: any.
class HttpDNSHostCache {
 public:
  static constexpr std::size_t kMostHosts = 20'000;
  // The most entries taken from one answer: half of the cache, which can be dropped for them.
  static constexpr std::size_t kMostUpdates = kMostHosts / 2;
  // Of an entry for a file: 19 bytes for each IPv4 address and 51 for each IPv6 address, with
  // quotes, comma and blank, and less than 100 for the rest.
  static constexpr std::size_t kLongestText = WQBASE::network::kMostAddresses * (19 + 51) + 100;

  // `addresses` gets the known ones of the family.
  HttpDNSGrade Check(zo_net::AddressFamily family, const std::string& host, std::int64_t now,
                     std::vector<std::string>& addresses) const;

  // Returns the entry of a host even when it has expired.
  std::optional<HttpDNSCacheEntry> Find(const std::string& host) const;

  // An empty list of addresses keeps the known one. With `no_good_period` the entry is stale at
  // once. Makes no room for a new entry.
  void SetEntry(HttpDNSCacheEntry update, std::int64_t now, bool no_good_period);
  // Takes all of one answer, kMostUpdates at most, and makes room for them.
  void SetEntries(const std::vector<HttpDNSCacheEntry>& updates, std::int64_t now);

  // Each entry as text for a file, by host.
  std::map<std::string, std::string> Dump() const;
  // Takes an entry from a file, in place of a known one, and for a short time only: the file may be
  // old, or the clock may have been set. Returns false for an unusable entry or a full cache.
  bool Load(const std::string& host, const std::string& text, std::int64_t now);
  void Clear();

 private:
  void MakeRoomFor(const std::vector<HttpDNSCacheEntry>& updates) ZO_REQUIRES(lock_);

  using Entries = std::map<std::string, HttpDNSCacheEntry>;

  mutable zo_base::_thread_recursive_mutex lock_;
  Entries entries_ ZO_GUARDED_BY(lock_);
};

}  // namespace zo_tarvel
