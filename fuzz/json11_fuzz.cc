#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/json/json11.h"

using zo_base::json11::Json;
using zo_base::json11::JsonParse;

namespace {

void Require(bool holds, const char* what, const std::string& text) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", what, text.c_str());
  std::abort();
}

Json ParseOwnText(const std::string& text) {
  std::string error;
  Json value = Json::parse(text, error, JsonParse::STANDARD);
  Require(error.empty(), error.c_str(), text);
  return value;
}

}  // namespace

// What the parser accepts, dump writes so that it reads back as the same value. From the second
// dump on nothing changes; the first may change numbers: one beyond the range of a double becomes
// null, and
// "-0.0" becomes "-0", which is the integer 0. The first byte chooses the strategy.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto strategy = static_cast<JsonParse>(data[0] & 1);
  std::string error;
  const Json value = Json::parse(std::string(data + 1, data + size), error, strategy);
  if (!error.empty()) {
    Require(value.is_null(), "a failed parse answers a value", error);
    return 0;
  }

  const std::string first = value.dump();
  const Json again = ParseOwnText(first);
  const bool may_overflow = first.find("null") != std::string::npos;
  Require(may_overflow || again == value, "another value after a round trip", first);

  const std::string second = again.dump();
  const Json third = ParseOwnText(second);
  Require(third == again, "another value after two round trips", second);
  Require(third.dump() == second, "another text after two round trips", second);
  return 0;
}
