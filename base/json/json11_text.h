#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zo_base::json11 {

// The letter after a backslash means the byte at the same index. "/" needs no escape.
inline constexpr std::string_view kEscapeLetters = "\"\\bfnrt/";
inline constexpr std::string_view kEscapedBytes = "\"\\\b\f\n\r\t/";

// U+2028 and U+2029, which are dumped as escapes, are E2 80 A8 and E2 80 A9.
inline constexpr char kLineSeparatorLead = '\xe2';

inline constexpr std::array<bool, 256> kNeverEscaped = [] {
  std::array<bool, 256> never{};
  for (unsigned byte = 0x20; byte < never.size(); ++byte) never[byte] = true;
  never['"'] = never['\\'] = never[static_cast<unsigned char>(kLineSeparatorLead)] = false;
  return never;
}();

constexpr bool IsNeverEscaped(char c) { return kNeverEscaped[static_cast<unsigned char>(c)]; }
// Whether a string in a text may hold the byte as it is.
constexpr bool IsPlain(char c) { return IsNeverEscaped(c) || c == kLineSeparatorLead; }

constexpr bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool IsHighSurrogate(std::uint32_t code) { return code >= 0xd800 && code <= 0xdbff; }
constexpr bool IsLowSurrogate(std::uint32_t code) { return code >= 0xdc00 && code <= 0xdfff; }

}  // namespace zo_base::json11
