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

// Addresses of hosts: IPv4 dotted, IPv6 in brackets. Nothing in them is anything but an IP literal.
using HostCacheResult = std::map<std::string, std::vector<std::string>>;

// How far an entry can be trusted.
enum class HttpDNSGrade {
  kGood,
  kStale,    // To be used, and refreshed beside.
  kExpired,  // Not to be used. Also of what isn't known, or not for the family.
};
const char* NameOf(HttpDNSGrade grade);

struct HttpDNSCacheEntry {
  std::string host;
  std::vector<std::string> ipv4;
  std::vector<std::string> ipv6;
  std::int32_t ttl_ms = 0;
  // Moments of the wall clock, in milliseconds.
  std::int64_t updated_at = 0;          // The good period begins.
  std::int64_t expired_time = 0;        // The stale period begins.
  std::int64_t cache_expired_time = 0;  // The stale period ends.
};

// What HTTPDNS has said of hosts. An entry is good for three quarters of its time to live and stale
// until nine tenths, so that it is renewed before the name server's own answer ends. A clock that
// is set back to before an entry makes that expired.
//
// Holds kMostHosts entries at most; of more, the half that would end first goes, but none that the
// answer at hand is about.
// Threads: any.
class HttpDNSHostCache {
 public:
  static constexpr std::size_t kMostHosts = 20'000;
  // Of one answer: so many find room when half of the entries has gone.
  static constexpr std::size_t kMostUpdates = kMostHosts / 2;
  // Of an entry for a file: 19 bytes for each IPv4 address and 51 for each IPv6 one, with quotes,
  // comma and blank, and less than 100 for the rest.
  static constexpr std::size_t kLongestText = WQBASE::network::kMostAddresses * (19 + 51) + 100;

  // What a new answer says of one host. Texts that are no address of their family are left out, and
  // a list without any keeps the one that is known.
  struct Update {
    std::string host;
    std::vector<std::string> ipv4;
    std::vector<std::string> ipv6;  // With brackets or without.
    std::int32_t ttl_ms = 0;
  };

  // `addresses` gets what is known of the family.
  HttpDNSGrade Check(zo_net::AddressFamily family, const std::string& host, std::int64_t now,
                     std::vector<std::string>& addresses) const;

  // What is kept of a host, also when its time is over.
  std::optional<HttpDNSCacheEntry> Find(const std::string& host) const;

  // With `no_good_period` the entry is stale at once. Makes no room for a new one.
  void SetEntry(const Update& update, std::int64_t now, bool no_good_period);
  // All of one answer, kMostUpdates at most, and room for them.
  void SetEntries(const std::vector<Update>& updates, std::int64_t now);

  // Each entry as text for a file, by host.
  std::map<std::string, std::string> Dump() const;
  // Takes an entry back from a file, for a short time only: the file may be old, and the clock may
  // have been set. An entry of the same host is replaced. False when the entry can't be used or
  // finds no room.
  bool Load(const std::string& host, const std::string& text, std::int64_t now);
  void Clear();

 private:
  void MakeRoomFor(const std::vector<Update>& updates) ZO_REQUIRES(lock_);

  using Entries = std::map<std::string, HttpDNSCacheEntry>;

  mutable zo_base::_thread_recursive_mutex lock_;
  Entries entries_ ZO_GUARDED_BY(lock_);
};

}  // namespace zo_tarvel
