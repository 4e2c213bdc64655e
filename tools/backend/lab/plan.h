#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/backend/answers_file.h"
#include "tools/backend/lab/address.h"
#include "tools/backend/lab/name_server.h"

namespace tarvel_backend {

// What a lab's file describes. docs/lab.md has its form. Plain values.

enum class CertificateKind : std::uint8_t { kRight, kUntrusted, kWrongName };

struct HostPlan {
  std::string name;
  std::vector<std::string> names;  // All that resolve to it: `name` and the further ones.
  std::vector<Address> addresses;
  std::optional<int> http;  // Ports.
  std::optional<int> https;
  CertificateKind certificate = CertificateKind::kRight;
  Answers answers;
};

struct NameServerPlan {
  Address address;
  AddressesOfNames names;
  AddressesOfNames poisoned;
};

enum class Reachability : std::uint8_t { kWell, kDropsPackets, kStopped };

// Replaces the host's earlier fault.
struct HostEvent {
  std::string host;
  Reachability reachability = Reachability::kWell;
  std::optional<Fault> fault;
};

// Returns "drops packets", or "fault: status 503".
std::string ToText(const HostEvent& event);

struct NetworkChange {
  std::optional<int> signal;  // Sent to the program.
};

struct AllWell {};

struct Event {
  std::chrono::milliseconds at{0};
  std::variant<HostEvent, NameServer::State, NetworkChange, AllWell> what;
};

struct Plan {
  std::vector<HostPlan> hosts;
  NameServerPlan name_server;
  std::vector<Event> timeline;  // In time order.
};

// Throws std::runtime_error, which names the place of the first mistake.
Plan ReadPlan(const std::string& path);

}  // namespace tarvel_backend
