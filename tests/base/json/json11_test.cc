#include "base/json/json11.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace zo_base::json11 {
namespace {

std::string ManyValues(std::size_t count) {
  std::string text = "{}";
  while (text.size() < count * 4 - 2) text += ", {}";
  return text;
}

TEST(Json11Test, NamesTheFirstErrorOfAText) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"unexpected end of input", {"", " \t\r\n", "[", "[1", "[1,", "{", "{\"a\":"}},
      {"expected value, got '/' (47)", {"//\n1", "/**/1"}},
      {"expected '\"' in object, got '}' (125)", {"{\"a\":1,}"}},
      {"unexpected trailing 'x' (120)", {"{} x", "0x1", "\"\"x y"}},
      {"leading 0s not permitted in numbers", {"01", "-00", "[00.5]"}},
      {"invalid (0) in number", {"-", std::string("-\0001", 3)}},
      {"at least one digit required in fractional part", {"1.", "1.e5", "-0.x"}},
      {"unexpected end of input in string", {"\"a", "\"a\\", "{\"a", "[\"\\\""}},
      {"unexpected end of input inside multi-line comment", {"/* /", "/*/ 1", "1 /* *"}},
      {"exceeded maximum nesting depth",
       {std::string(202, '[') + std::string(202, ']'), std::string(1'000'000, '[')}},
      {"exceeded maximum number of values", {"[" + ManyValues(300'000) + "]"}},
  };
  for (const auto& [expected, texts] : cases) {
    const JsonParse strategy = expected.ends_with("comment") ? COMMENTS : STANDARD;
    for (const std::string& text : texts) {
      std::string error = "left from before";
      EXPECT_TRUE(Json::parse(text, error, strategy).is_null()) << text.substr(0, 100);
      EXPECT_EQ(error, expected) << text.substr(0, 100);
    }
  }
}

TEST(Json11Test, DumpsWhatItParsed) {
  const std::string deepest = std::string(201, '[') + std::string(201, ']');
  const std::string most = "[" + ManyValues(299'999) + "]";
  const std::pair<std::string, std::string> cases[] = {
      {"{\"b\":1,\"\":2,\"a\":[3],\"B\":{}}", R"({"": 2, "B": {}, "a": [3], "b": 1})"},
      {R"({"\u00e9": 1, "z": 2})", "{\"z\": 2, \"\xc3\xa9\": 1}"},  // Bytes order as unsigned.
      {R"("\b\f\n\r\t\"\\\/")", R"("\b\f\n\r\t\"\\/")"},
      {"\"\xe2\x80\xa8\\u2028\xe2\x80\xa9\"", R"("\u2028\u2028\u2029")"},
      {R"("\u007f\u0080\u07FF\u0800\uffff")", "\"\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf\""},
      {R"("\ud800\udc00\udbff\udfff")", "\"\xf0\x90\x80\x80\xf4\x8f\xbf\xbf\""},
      {"\"\xff\xc0\x80 \xed\xa0\x80\xf8\"", "\"\xff\xc0\x80 \xed\xa0\x80\xf8\""},  // No UTF-8.
      {"[1e17, 1e16, 0.0001, 0.00001]",
       "[1e+17, 10000000000000000, 0.0001, 1.0000000000000001e-05]"},
      {"[0.1, 1E+3, -0.0, 5e-324, 1e-999]",
       "[0.10000000000000001, 1000, -0, 4.9406564584124654e-324, 0]"},
      {"[1.7976931348623157e308, 1e999, -1e999]", "[1.7976931348623157e+308, null, null]"},
      {"{/*1*/\"a\"/*2*/:/*3*/[/* * / // */1/***/,//\n\"/*4*/ //\"]}/**///",
       R"({"a": [1, "/*4*/ //"]})"},
      {deepest, deepest},
      {most, most},
  };
  for (const auto& [text, dump] : cases) {
    std::string error = "left from before";
    EXPECT_EQ(Json::parse(text, error, COMMENTS).dump(), dump);
    EXPECT_EQ(error, "") << text.substr(0, 100);
  }
}

}  // namespace
}  // namespace zo_base::json11
