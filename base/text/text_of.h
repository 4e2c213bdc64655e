#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace zo_base {

// The text in a fixed array of a client's record, which may have been filled to its end.
template <std::size_t kSize>
std::string TextOf(const char (&array)[kSize]) {
  return std::string(array, strnlen(array, kSize));
}

inline const char* TextOf(bool value) { return value ? "true" : "false"; }

}  // namespace zo_base
