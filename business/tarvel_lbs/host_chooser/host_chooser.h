#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

// The rotation behind link addresses: each question gets the next address of a list; when that is
// used up, one question gets a default, and the list begins anew. So a default says that the list
// has been through.
//
// An address is "host:port". Families are those of EMAddressFamily.
// Threads: any. The lock is never held over a log line.
class HostChooser {
 public:
  // `next_chooser` is the id of the chooser that follows this one; carried only.
  HostChooser(std::string default_host, std::string default_host_ipv6, std::int32_t next_chooser)
      : default_host(std::move(default_host)),
        default_host_ipv6(std::move(default_host_ipv6)),
        next_chooser(next_chooser) {}

  // Skips IP literals of the other family. Returns whether `out` is a default.
  bool GetHost(std::int32_t family, std::string& out);
  // What the next GetHost hands out, whatever the family; empty when the list is used up.
  std::string GetCurrentHost() const;
  std::int32_t GetHostCount() const;

  // For family 0 both defaults.
  void SetDefaultHost(std::int32_t family, const std::string& host);
  // Begins at the head of a new list.
  void ResetHosts(const std::vector<std::string>& list);
  // A connection to this address stands. The rotation goes on all the same.
  void OnHostConnectSucceed(const std::string& host, std::int32_t port);

 private:
  bool TakeNextOf(std::int32_t family, std::string& out) ZO_REQUIRES(lock);
  const std::string& DefaultOf(std::int32_t family) const ZO_REQUIRES(lock);
  void LogHosts(const char* operation) const ZO_EXCLUDES(lock);

  mutable zo_base::_thread_recursive_mutex lock;
  std::vector<std::string> hosts ZO_GUARDED_BY(lock);
  std::string default_host ZO_GUARDED_BY(lock);  // For IPv4 and for any family.
  std::string default_host_ipv6 ZO_GUARDED_BY(lock);
  std::size_t current_index ZO_GUARDED_BY(lock) = 0;  // Of the next host to hand out.
  const std::int32_t next_chooser;
};

}  // namespace zo_tarvel
