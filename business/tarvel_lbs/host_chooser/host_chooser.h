#pragma once

#include <vector>

#include "base/lock/recursive_mutex.h"
#include "business/tarvel_lbs/link_address.h"

namespace zo_tarvel {

// Hands out the link addresses of a list in rotation. When the list is used up, one call of
// GetHost returns a default, and then the list begins again.
//
// Families are those of EMAddressFamily.
// Threads: any. The lock is never held over a log line.
class HostChooser {
 public:
  // `next_chooser` is the id of the chooser that follows this one; it is only stored.
  HostChooser(const std::string& default_host, const std::string& default_host_ipv6,
              std::int32_t next_chooser)
      : next_chooser(next_chooser),
        default_host(SplitLinkAddress(default_host)),
        default_host_ipv6(SplitLinkAddress(default_host_ipv6)) {}

  // Skips IP literals of the other family. Returns whether `out` is a default.
  bool GetHost(std::int32_t family, LinkAddress& out);
  bool GetHost(std::int32_t family, std::string& out);
  // What the next GetHost for any family hands out; empty when the list is used up.
  LinkAddress GetCurrentAddress() const;
  std::string GetCurrentHost() const { return GetCurrentAddress().text; }
  std::int32_t GetHostCount() const;

  // For family 0 both defaults.
  void SetDefaultHost(std::int32_t family, const std::string& host);
  // Begins at the head of a new list.
  void ResetHosts(std::vector<LinkAddress> list);
  // A connection to this address was made. It doesn't stop the rotation.
  void OnHostConnectSucceed(const std::string& host, std::int32_t port);

 private:
  bool TakeNextOf(std::int32_t family, LinkAddress& out) ZO_REQUIRES(lock);
  const LinkAddress& DefaultOf(std::int32_t family) const ZO_REQUIRES(lock);
  void LogHosts(const char* operation) const ZO_EXCLUDES(lock);

  [[maybe_unused]] const std::int32_t next_chooser;

  mutable zo_base::_thread_recursive_mutex lock;
  std::vector<LinkAddress> hosts ZO_GUARDED_BY(lock);
  LinkAddress default_host ZO_GUARDED_BY(lock);  // For IPv4 and for any family.
  LinkAddress default_host_ipv6 ZO_GUARDED_BY(lock);
  std::size_t current_index ZO_GUARDED_BY(lock) = 0;  // Of the next host to hand out.
};

}  // namespace zo_tarvel
