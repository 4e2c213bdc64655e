#include "network/text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace WQBASE::network {
namespace {

using namespace std::string_literals;

TEST(TextTest, EncodesAllButLettersAndDigits) {
  EXPECT_EQ(UrlEncode("azAZ09 "), "azAZ09%20");
  EXPECT_EQ(UrlEncode("-._~@`[{/:\0\x7f\x80\xff"s), "%2D%2E%5F%7E%40%60%5B%7B%2F%3A%00%7F%80%FF");
}

TEST(TextTest, SplitsAtAnyRunOfDelimiters) {
  const struct {
    std::string text, delimiters;
    std::vector<std::string> pieces;
  } cases[] = {
      {";,a,;b c,;", ",;", {"a", "b c"}},
      {"a\0b"s, "\0"s, {"a", "b"}},
      {"::", ":", {}},
      {"a b", "", {"a b"}},
  };
  for (const auto& [text, delimiters, pieces] : cases) {
    EXPECT_EQ(Split(text, delimiters), pieces) << text;
  }
}

TEST(TextTest, ReplacesEveryOccurrenceFromTheLeft) {
  const struct {
    const char *text, *from, *to, *replaced;
  } cases[] = {
      {"aaaaa", "aa", "b", "bba"},
      {"abab", "ab", "", ""},
      {"ababac ababaababac", "ababac", "x", "x ababax"},
      {"ab", "", "x", "ab"},
      {"aabaaabaaac", "aabaaac", "x", "aabax"},
  };
  for (const auto& [text, from, to, replaced] : cases) {
    EXPECT_EQ(ReplaceAll(text, from, to), replaced) << text << " " << from;
  }
}

TEST(TextTest, ChangesTheCaseOfAsciiLettersOnly) {
  std::string text = "@AZ[`az{09\xc4\xe4";
  ToLower(text);
  EXPECT_EQ(text, "@az[`az{09\xc4\xe4");
  ToUpper(text);
  EXPECT_EQ(text, "@AZ[`AZ{09\xc4\xe4");
}

TEST(TextTest, FormatsTextsOfAnyLength) {
  EXPECT_EQ(StringFormat("%s:%d%%%c", "a", -7, '\0'), "a:-7%\0"s);
  EXPECT_EQ(StringFormat("%*d", 100'000, 1), std::string(99'999, ' ') + "1");
  EXPECT_EQ(StringFormat("%ls", L"\x7fffffff"), "");  // The locale has no bytes for it.
}

}  // namespace
}  // namespace WQBASE::network
