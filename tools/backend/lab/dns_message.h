#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/backend/lab/address.h"

namespace tarvel_backend {

// Types of DNS questions.
inline constexpr int kTypeA = 1;
inline constexpr int kTypeAAAA = 28;

enum class DnsCode : std::uint8_t { kGood = 0, kNoSuchName = 3, kRefused = 5 };

// A question to a name server. A plain value.
struct DnsQuestion {
  std::string_view packet;  // Without what follows the question. Points into the received packet.
  std::string name;         // In lower case, without the last dot.
  int type = 0;
};

// Returns nullopt unless the packet is a query with one question. The packet may be anything.
std::optional<DnsQuestion> ReadQuestion(std::string_view packet);

// Returns the packet of an answer. It has the addresses that are of the question's type.
std::string MakeAnswer(const DnsQuestion& question, DnsCode code,
                       const std::vector<Address>& addresses);

// Returns whether a question may name it: letters, digits, '-' and '_', in labels between dots.
bool IsHostName(std::string_view name);

}  // namespace tarvel_backend
