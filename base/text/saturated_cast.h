#pragma once

#include <cstdint>
#include <limits>

namespace zo_base {

// The integer part of a number that may come from anywhere: beyond the range of `Integer` the
// nearer end of that, and 0 for what is no number.
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
