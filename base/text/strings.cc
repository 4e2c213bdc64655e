#include "base/text/strings.h"

#include <algorithm>
#include <bitset>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "base/text/utf8.h"

namespace zo_base {
namespace {

using CharacterSet = std::bitset<UCHAR_MAX + 1>;

unsigned char ByteOf(char c) { return static_cast<unsigned char>(c); }

char LowerOf(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

CharacterSet SetOf(std::string_view characters) {
  CharacterSet set;
  for (const char c : characters) set.set(ByteOf(c));
  return set;
}

// How many bytes a character at the begin of `text` has that hides or reorders the text around it,
// or that terminals or viewers take for a command or a line end; 0 for any other character.
std::size_t HiddenLength(std::string_view text) {
  const auto byte = [text](std::size_t i) { return i < text.size() ? ByteOf(text[i]) : 0; };
  const auto third_in = [&](int first, int last) { return byte(2) >= first && byte(2) <= last; };
  if (byte(0) < 0x20 || byte(0) == 0x7F) return 1;
  if (byte(0) == 0xC2) return byte(1) < 0xA0 || byte(1) == 0xAD ? 2 : 0;
  if (byte(0) == 0xD8) return byte(1) == 0x9C ? 2 : 0;
  if (byte(0) == 0xEF) return byte(1) == 0xBB && byte(2) == 0xBF ? 3 : 0;
  if (byte(0) != 0xE2) return 0;
  if (byte(1) == 0x80) return third_in(0x8B, 0x8F) || third_in(0xA8, 0xAE) ? 3 : 0;
  return byte(1) == 0x81 && third_in(0xA0, 0xAF) ? 3 : 0;
}

}  // namespace

std::vector<std::uint8_t> BytesOf(std::string_view text) {
  const auto* const first = reinterpret_cast<const std::uint8_t*>(text.data());
  return {first, first + text.size()};
}

std::string Printable(std::string_view text, std::size_t limit) {
  std::string_view kept = text.substr(0, limit);
  // Not inside of a character.
  while (kept.size() < text.size() && (ByteOf(text[kept.size()]) & 0xC0) == 0x80 && !kept.empty()) {
    kept.remove_suffix(1);
  }
  const bool is_utf8 = IsUtf8(kept);
  std::string line;
  for (std::size_t i = 0; i < kept.size();) {
    const bool is_foreign = !is_utf8 && ByteOf(kept[i]) >= 0x80;
    const std::size_t hidden = is_foreign ? 1 : HiddenLength(kept.substr(i));
    for (const std::size_t end = i + hidden; i < end; ++i) {
      line += StringFormat("\\x%02x", ByteOf(kept[i]));
    }
    if (hidden == 0) line += kept[i++];
  }
  return kept.size() < text.size() ? line + "..." : line;
}

std::vector<std::string> Split(std::string_view text, std::string_view delimiters) {
  const CharacterSet delimiter_set = SetOf(delimiters);
  const auto is_delimiter = [&](char c) { return delimiter_set[ByteOf(c)]; };
  std::vector<std::string> pieces;
  auto at = text.begin();
  while ((at = std::find_if_not(at, text.end(), is_delimiter)) != text.end()) {
    const auto end = std::find_if(at, text.end(), is_delimiter);
    pieces.emplace_back(at, end);
    at = end;
  }
  return pieces;
}

std::string Join(const std::vector<std::string>& texts, std::string_view separator) {
  std::string joined;
  for (const std::string& text : texts) {
    if (&text != &texts.front()) joined += separator;
    joined += text;
  }
  return joined;
}

// By Knuth, Morris and Pratt: a plain search takes quadratic time on a text such as "aaaa" for
// "aab", and so does memmem() in a build with ThreadSanitizer.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(text);
  const std::vector<std::size_t> borders = BordersOf(from);
  std::string replaced;
  std::size_t copied = 0;
  std::size_t matched = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    while (matched > 0 && text[i] != from[matched]) matched = borders[matched - 1];
    if (text[i] == from[matched]) ++matched;
    if (matched < from.size()) continue;
    const std::size_t found = i + 1 - from.size();
    replaced.append(text.substr(copied, found - copied)).append(to);
    copied = i + 1;
    matched = 0;
  }
  return replaced.append(text.substr(copied));
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, LowerOf, LowerOf);
}

bool IsOneWord(std::string_view text) {
  return std::ranges::all_of(
      text, [](char c) { return static_cast<unsigned char>(c) > ' ' && c != '\x7f'; });
}

std::vector<std::size_t> BordersOf(std::string_view pattern) {
  std::vector<std::size_t> borders(pattern.size(), 0);
  std::size_t border = 0;
  for (std::size_t i = 1; i < pattern.size(); ++i) {
    while (border > 0 && pattern[i] != pattern[border]) border = borders[border - 1];
    if (pattern[i] == pattern[border]) ++border;
    borders[i] = border;
  }
  return borders;
}

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

void ToLower(std::string& text) {
  for (char& c : text) c = LowerOf(c);
}

void ToUpper(std::string& text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
}

std::string StringFormat(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* printed = nullptr;
  // clang-tidy reads va_start aright in the first file of a run only.
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = vasprintf(&printed, format, arguments);
  va_end(arguments);
  if (length < 0) return {};
  const std::unique_ptr<char, decltype(&std::free)> owner(printed, &std::free);
  return std::string(printed, static_cast<std::size_t>(length));
}

}  // namespace zo_base
