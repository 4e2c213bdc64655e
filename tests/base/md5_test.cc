#include "base/md5.h"

#include <gtest/gtest.h>

#include <string>

namespace zo_base {
namespace {

TEST(Md5Test, AnswersKnownDigests) {
  const struct {
    std::string text;
    const char* digest;
  } cases[] = {
      // The test suite of RFC 1321.
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      // Lengths at the edges of a block, where the padding takes another one.
      {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
      {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
      {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
      // Bytes that are no text, and a length beyond 16 bits.
      {std::string("\0\xff\x80", 3), "4fd64cb80c3f86e1e9d0f559af8b370f"},
      {std::string(100'000, 'a'), "1af6d6f2f682f76f80e606aeaaee1680"},
  };
  for (const auto& [text, digest] : cases) {
    EXPECT_EQ(Md5Hex(text), digest) << text.size() << " bytes: " << text.substr(0, 70);
  }
}

}  // namespace
}  // namespace zo_base
