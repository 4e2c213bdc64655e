#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

// Helpers on strings of bytes. All but StringFormat take linear time and are the same in every
// locale; letters are those of ASCII.
namespace zo_base {

// The text in a fixed array of a client's record, which may have been filled to its end.
template <std::size_t kSize>
std::string TextOf(const char (&array)[kSize]) {
  return std::string(array, strnlen(array, kSize));
}

// The same bytes as another type, copied at once: a range of another type is copied byte by byte.
std::vector<std::uint8_t> BytesOf(std::string_view text);
inline std::string_view TextIn(const std::vector<std::uint8_t>& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline const char* TrueOrFalse(bool value) { return value ? "true" : "false"; }

// The pieces between characters of the set `delimiters`, without empty ones. With an empty set the
// text is the only piece.
std::vector<std::string> Split(std::string_view text, std::string_view delimiters);

// The texts with `separator` between them.
std::string Join(const std::vector<std::string>& texts, std::string_view separator);

// `text` with `to` for every occurrence of `from`, found from the left and without overlap. An
// empty `from` occurs nowhere.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);

// For each prefix of `pattern`, the length of the longest shorter prefix that also ends it: where a
// search goes on after a mismatch, without looking back.
std::vector<std::size_t> BordersOf(std::string_view pattern);

bool EqualIgnoringCase(std::string_view a, std::string_view b);
// Without the blanks, tabs and line ends around it.
std::string_view Trim(std::string_view text);

// Whether the text is UTF-8 without blanks and without what Printable() would escape. A text that
// comes from a server and is logged as it stands must be one word: a line feed in it would let the
// server write lines of the log.
bool IsOneWord(std::string_view text);

// For one line of a log or a terminal: bytes of control characters, of characters that hide or
// reorder text, and of a text that is no UTF-8 become "\x1b". Longer texts are cut to `limit` bytes
// and end with "...".
std::string Printable(std::string_view text, std::size_t limit);

inline bool IsLetterOrDigit(char c) {  // Of ASCII.
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// In place.
void ToLower(std::string& text);
void ToUpper(std::string& text);

// What printf would write, of any length; empty if it would fail.
[[gnu::format(printf, 1, 2)]] std::string StringFormat(const char* format, ...);

}  // namespace zo_base
