#include "base/md5.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace zo_base {
namespace {

TEST(Md5Test, AnswersKnownDigests) {
  const std::pair<std::string, const char*> cases[] = {
      {std::string("\0\xff\x80", 3), "4fd64cb80c3f86e1e9d0f559af8b370f"},
      // Lengths at the edges of a block, where the padding takes another one.
      {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
      {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
      {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
      {std::string(100'000, 'a'), "1af6d6f2f682f76f80e606aeaaee1680"},  // More than 16 bits.
  };
  for (const auto& [text, digest] : cases) EXPECT_EQ(Md5Hex(text), digest) << text.size();
}

}  // namespace
}  // namespace zo_base
