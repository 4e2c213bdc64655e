#pragma once

#include <tarvel/address_family.h>

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/object/object.h"
#include "base/thread/task_thread.h"

namespace zo_net {

// Looks hosts up at the system's name servers through c-ares. A client of the local DNS, not a
// server.
//
// One lookup runs at a time, for 3 s at most, and the others wait in a queue. A lookup fails when
// the process has so many open descriptors that a new one doesn't fit into an fd_set.
// Threads: operations may be called from any thread, but none while Start runs. Callbacks run on
// the thread "dns_server".
// Ownership: held by a shared_ptr; owns the thread. Lookups that are queued when the thread stops
// get no callback; the running one fails within about 80 ms.
class DnsServer : public zo_base::ZOObjectIMPL {
 public:
  // The result of a lookup.
  struct HostResult {
    bool valid = false;  // The other members are filled.
    bool success = false;
    std::int32_t timeouts = 0;  // How often a name server didn't answer in time.
    std::string host;           // The canonical name.
    std::vector<std::string> aliases;
    AddressFamily address_family = kAddressFamilyAny;
    std::vector<std::string> addresses;  // IPv6 as eight groups of four hexadecimal digits.
  };
  using HostCallback = std::function<void(const HostResult&)>;
  using HostsCallback = std::function<void(const std::map<std::string, HostResult>&)>;

  DnsServer() = default;
  ~DnsServer() override;

  // Starts the thread unless it runs. Throws std::system_error when the system gives no thread.
  void Start();
  // Waits for the running lookup.
  void Stop();
  bool IsRunning() const;

  // Calls back once. Does nothing while the thread isn't running.
  void GetHostByName(const std::string& host, HostCallback callback, AddressFamily family);
  // Calls back once, with all results. With a host that is listed twice, or an empty list, it never
  // calls back.
  void GetHostByName(const std::list<std::string>& hosts, const HostsCallback& callback,
                     AddressFamily family);

 private:
  class Lookup;

  std::shared_ptr<zo_base::TaskThread> thread;
  // Shared with the thread, which may still run when this is destroyed.
  std::shared_ptr<Lookup> lookup;
};

}  // namespace zo_net
