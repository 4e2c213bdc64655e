#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

namespace zo_base {

// A decimal integer. `fallback` for what is no number from end to end, and for one that is out of
// range.
template <class Integer>
Integer ReadNumber(std::string_view text, Integer fallback) {
  Integer number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  return read.ec == std::errc() && read.ptr == end ? number : fallback;
}

}  // namespace zo_base
