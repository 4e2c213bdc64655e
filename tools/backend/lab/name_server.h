#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/backend/lab/address.h"
#include "tools/backend/lab/report.h"

namespace tarvel_backend {

using AddressesOfNames = std::map<std::string, std::vector<Address>>;

// A name server over UDP that knows the lab's names only, and fails on request. Each question is a
// line of the report.
//
// Threads: created and destroyed on the owner's; serves on a thread of its own. Ownership: `report`
// outlives it.
class NameServer {
 public:
  enum class State : std::uint8_t { kWell, kSilent, kRefuses, kPoisoned };

  // Listens on port 53 when it returns. While poisoned, `poisoned` overrides `names`. Throws
  // std::runtime_error.
  NameServer(const Address& address, AddressesOfNames names, AddressesOfNames poisoned,
             Report& report);
  ~NameServer();
  NameServer(const NameServer&) = delete;
  NameServer& operator=(const NameServer&) = delete;

  void SetState(State state) { state_ = state; }

 private:
  void Serve();
  // The packet may be anything. Returns nullopt when none is to be sent.
  std::optional<std::string> Answer(std::string_view packet);
  const std::vector<Address>* Find(const std::string& name) const;

  const AddressesOfNames names_;
  const AddressesOfNames poisoned_;
  Report& report_;
  const int socket_;
  const int stop_;  // An eventfd, readable at the end.
  std::atomic<State> state_{State::kWell};
  std::uint64_t not_understood_ = 0;  // Packets. Not locked: of the serving thread.
  std::thread thread_;                // Last: all that it uses exists before it starts.
};

}  // namespace tarvel_backend
