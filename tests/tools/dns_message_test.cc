#include "tools/backend/lab/dns_message.h"

#include <gtest/gtest.h>

namespace tarvel_backend {
namespace {

using namespace std::string_literals;

// The question of a client for the addresses of "A.example".
const std::string kPacket =
    "\x12\x34\x01\0\0\x01\0\0\0\0\0\0"
    "\1A\7example\0\0\x01\0\x01"s;

TEST(DnsMessageTest, AnswersWithTheAddressesOfTheType) {
  const std::string packet = kPacket + "any extension";
  const auto question = ReadQuestion(packet);
  ASSERT_TRUE(question);
  EXPECT_EQ(question->name, "a.example");
  EXPECT_EQ(question->type, kTypeA);
  const std::vector<Address> addresses{Address::FromText("2001:db8::1").value(),
                                       Address::FromText("192.0.2.1").value()};
  EXPECT_EQ(MakeAnswer(*question, DnsCode::kGood, addresses),
            "\x12\x34\x81\x80\0\x01\0\x01\0\0\0\0"
            "\1A\7example\0\0\x01\0\x01"
            "\xc0\x0c\0\x01\0\x01\0\0\0\x01\0\x04\xc0\0\x02\x01"s);
}

TEST(DnsMessageTest, IgnoresWhatIsNoQuestion) {
  for (std::size_t size = 0; size < kPacket.size(); ++size) {
    // A copy of its own, so that a sanitizer notices each byte that is read behind the end.
    const std::vector<char> cut(kPacket.begin(), kPacket.begin() + static_cast<long>(size));
    EXPECT_FALSE(ReadQuestion({cut.data(), cut.size()})) << size;
  }
  const auto with = [](std::size_t at, char byte) {
    std::string packet = kPacket;
    packet[at] = byte;
    return packet;
  };
  EXPECT_FALSE(ReadQuestion(with(2, '\x81'))) << "an answer";
  EXPECT_FALSE(ReadQuestion(with(5, 2))) << "two questions";
  EXPECT_FALSE(ReadQuestion(with(12, '\xc0'))) << "a compressed name";
  EXPECT_FALSE(ReadQuestion(with(14, 63))) << "a label behind the end";
  EXPECT_FALSE(ReadQuestion(with(26, 3))) << "another class";
}

}  // namespace
}  // namespace tarvel_backend
