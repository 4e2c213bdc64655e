#include "tools/backend/lab/dns_message.h"

#include <algorithm>

#include "base/text/strings.h"

namespace tarvel_backend {

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kLongestName = 253;
constexpr std::size_t kLongestLabel = 63;
constexpr int kClassInternet = 1;
constexpr int kSecondsToLive = 1;  // A change of the name server's state soon has its effect.
constexpr unsigned kIsAnswer = 0x80;
constexpr unsigned kOperation = 0x78;
constexpr unsigned kRecursionDesired = 0x01;
constexpr unsigned kRecursionAvailable = 0x80;

unsigned ByteAt(std::string_view packet, std::size_t at) {
  return static_cast<unsigned char>(packet[at]);
}

int NumberAt(std::string_view packet, std::size_t at) {
  return static_cast<int>(ByteAt(packet, at) << 8 | ByteAt(packet, at + 1));
}

void AppendNumber(std::string& packet, std::size_t number) {
  packet += static_cast<char>(number >> 8 & 0xff);
  packet += static_cast<char>(number & 0xff);
}

bool IsNameCharacter(char c) { return zo_base::IsLetterOrDigit(c) || c == '-' || c == '_'; }

// Moves `at` behind the name.
std::optional<std::string> ReadName(std::string_view packet, std::size_t& at) {
  std::string name;
  while (at < packet.size()) {
    const std::size_t length = ByteAt(packet, at++);
    if (length == 0) return name;
    // A compressed name is longer than any label, and a question needs none.
    if (length > kLongestLabel || length > packet.size() - at) return std::nullopt;
    if (!name.empty()) name += '.';
    name += packet.substr(at, length);
    at += length;
    if (name.size() > kLongestName) return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

std::optional<DnsQuestion> ReadQuestion(std::string_view packet) {
  if (packet.size() < kHeaderSize || (ByteAt(packet, 2) & (kIsAnswer | kOperation)) != 0 ||
      NumberAt(packet, 4) != 1) {
    return std::nullopt;
  }
  std::size_t at = kHeaderSize;
  auto name = ReadName(packet, at);
  if (!name || packet.size() - at < 4 || NumberAt(packet, at + 2) != kClassInternet) {
    return std::nullopt;
  }
  zo_base::ToLower(*name);
  return DnsQuestion{packet.substr(0, at + 4), *name, NumberAt(packet, at)};
}

std::string MakeAnswer(const DnsQuestion& question, DnsCode code,
                       const std::vector<Address>& addresses) {
  std::string records;
  std::size_t count = 0;
  for (const Address& address : addresses) {
    if (question.type != (address.is_v4() ? kTypeA : kTypeAAAA)) continue;
    ++count;
    AppendNumber(records, 0xc000 | kHeaderSize);  // The name is the question's.
    AppendNumber(records, static_cast<std::size_t>(question.type));
    AppendNumber(records, kClassInternet);
    AppendNumber(records, 0);
    AppendNumber(records, kSecondsToLive);
    AppendNumber(records, address.bytes().size());
    records += address.bytes();
  }
  std::string packet(question.packet.substr(0, 2));
  packet += static_cast<char>(kIsAnswer | (ByteAt(question.packet, 2) & kRecursionDesired));
  packet += static_cast<char>(kRecursionAvailable | static_cast<unsigned>(code));
  for (const std::size_t records_of_section :
       {std::size_t{1}, count, std::size_t{0}, std::size_t{0}}) {
    AppendNumber(packet, records_of_section);
  }
  packet += question.packet.substr(kHeaderSize);
  return packet + records;
}

bool IsHostName(std::string_view name) {
  if (name.empty() || name.size() > kLongestName) return false;
  for (std::size_t begin = 0; begin <= name.size();) {
    const std::size_t end = std::min(name.find('.', begin), name.size());
    const std::string_view label = name.substr(begin, end - begin);
    if (label.empty() || label.size() > kLongestLabel ||
        !std::all_of(label.begin(), label.end(), IsNameCharacter)) {
      return false;
    }
    begin = end + 1;
  }
  return true;
}

}  // namespace tarvel_backend
