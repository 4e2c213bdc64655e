#pragma once

#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>

namespace zo_base {

// Reads a decimal integer. Returns `fallback` unless the whole text is one that is in range.
template <class Integer>
Integer ReadNumber(std::string_view text, Integer fallback) {
  Integer number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  return read.ec == std::errc() && read.ptr == end ? number : fallback;
}

// Reads a decimal number in the form of JSON, in any locale. Out of range it is infinite or 0.
double ReadDouble(std::string_view text);

// The integer part of any number: the nearer limit outside the range of `Integer`, 0 for NaN.
template <class Integer>
Integer SaturatedCast(double value) {
  using Limits = std::numeric_limits<Integer>;
  if (value != value) return 0;
  // As a double, the highest 64-bit integer is one too high: so ">=".
  if (value >= static_cast<double>(Limits::max())) return Limits::max();
  if (value <= static_cast<double>(Limits::min())) return Limits::min();
  return static_cast<Integer>(value);
}

}  // namespace zo_base
