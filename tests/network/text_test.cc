#include "network/text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace WQBASE::network {
namespace {

using namespace std::string_literals;

TEST(TextTest, EncodesAllButLettersAndDigits) {
  EXPECT_EQ(UrlEncode("azAZ09"), "azAZ09");
  EXPECT_EQ(UrlEncode("a b-c"), "a%20b%2Dc");
  EXPECT_EQ(UrlEncode("-._~@`[{/:\0\x7f\x80\xff"s), "%2D%2E%5F%7E%40%60%5B%7B%2F%3A%00%7F%80%FF");
}

TEST(TextTest, SplitsAtAnyRunOfDelimiters) {
  const struct {
    std::string text, delimiters;
    std::vector<std::string> pieces;
  } cases[] = {
      {"a::b", ":", {"a", "b"}},
      {";,a,;b c,;", ",;", {"a", "b c"}},
      {"abc", ":", {"abc"}},
      {"a\0b"s, "\0"s, {"a", "b"}},
      {"a\xff\xfe", "\xff", {"a", "\xfe"}},
      {"::", ":", {}},
      {"", ":", {}},
      {"", "", {}},
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
      {"a.b.c", ".", "--", "a--b--c"},
      {"aaaaa", "aa", "b", "bba"},
      {"abab", "ab", "", ""},
      {"ab", "b", "bb", "abb"},
      {"aab", "ab", "c", "ac"},
      {"ababac ababaababac", "ababac", "x", "x ababax"},
      {"ab", "abc", "x", "ab"},
      {"abcabd", "abd", "x", "abcx"},
      {"ab", "", "x", "ab"},
      {"", "a", "x", ""},
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
  EXPECT_EQ(StringFormat("%s:%d%%", "a", -7), "a:-7%");
  EXPECT_EQ(StringFormat("%s", ""), "");
  EXPECT_EQ(StringFormat("a%cb", '\0'), "a\0b"s);
  EXPECT_EQ(StringFormat("%*d", 100'000, 1), std::string(99'999, ' ') + "1");
  // Wide characters that the locale has no bytes for.
  EXPECT_EQ(StringFormat("%ls", L"\x7fffffff"), "");
}

}  // namespace
}  // namespace WQBASE::network
