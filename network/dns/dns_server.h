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

// Asks the system's name servers for the addresses of hosts, over c-ares with the system's
// configuration. It tells what the local DNS says; it serves nothing to anybody.
//
// One lookup at a time, 3 s at most each; the others wait in line. In a process with so many open
// descriptors that a lookup's sockets don't fit a set for select, the lookup fails.
// Threads: operations from any; callbacks run on the thread "dns_server".
// Ownership: held by a shared_ptr; owns the thread. What is pending when the thread stops gets no
// callback; a lookup under way ends within about 80 ms, as failed.
class DnsServer : public zo_base::ZOObjectIMPL {
 public:
  // What a lookup came to.
  struct HostResult {
    bool valid = false;         // Filled.
    bool success = false;       // There is an answer.
    std::int32_t timeouts = 0;  // How often a name server didn't answer in time.
    std::string host;           // The canonical name.
    std::vector<std::string> aliases;
    AddressFamily address_family = kAddressFamilyAny;
    // Dotted, or eight groups of four hexadecimal digits.
    std::vector<std::string> addresses;
  };
  using HostCallback = std::function<void(const HostResult&)>;
  using HostsCallback = std::function<void(const std::map<std::string, HostResult>&)>;

  DnsServer() = default;
  ~DnsServer() override;

  // Starts the thread, unless it runs. Not beside another operation. Raises std::system_error when
  // the system gives none.
  void Start();
  // Waits for the end of the lookup under way.
  void Stop();
  bool IsRunning() const;

  // One call back for each lookup. While the thread isn't running, none.
  void GetHostByName(const std::string& host, HostCallback callback, AddressFamily family);
  // One call back when all are known. `hosts` are distinct: with one that is there twice, and with
  // an empty list, there is no call back.
  void GetHostByName(const std::list<std::string>& hosts, const HostsCallback& callback,
                     AddressFamily family);

 private:
  class Lookup;

  std::shared_ptr<zo_base::TaskThread> thread;
  // What the thread works with. Shared with it: this may go while the thread ends.
  std::shared_ptr<Lookup> lookup;
};

}  // namespace zo_net
