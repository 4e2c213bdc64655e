#pragma once

#include <cstdint>
#include <string>

namespace zo_base {

inline constexpr char kLoadBegin[] =
    "\r\n -----------------------load from mmap file begin-----------------------\r\n";
inline constexpr char kLoadEnd[] =
    "\r\n -----------------------load from mmap file end-----------------------\r\n";

// Text as it stands in the log after it was recovered.
inline std::string Recovered(const std::string& text) { return kLoadBegin + text + kLoadEnd; }

// A companion of `size` bytes whose count says `used`, as the machine writes it.
inline std::string CompanionOf(std::int32_t used, const std::string& text, std::size_t size) {
  std::string content(reinterpret_cast<const char*>(&used), sizeof used);
  content += text;
  content.resize(size, '\0');
  return content;
}

}  // namespace zo_base
