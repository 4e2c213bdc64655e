#include "base/text/strings.h"

#include <algorithm>
#include <bitset>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

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

// The characters that terminals or viewers take for commands or line ends, and those that are not
// visible themselves or reorder the text around them.
constexpr std::pair<std::uint32_t, std::uint32_t> kHidden[] = {
    {0x0000, 0x001F},  {0x007F, 0x009F}, {0x00AD, 0x00AD},   {0x034F, 0x034F},   {0x061C, 0x061C},
    {0x115F, 0x1160},  {0x17B4, 0x17B5}, {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E},
    {0x2060, 0x206F},  {0x2800, 0x2800}, {0x3164, 0x3164},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},
    {0xFFA0, 0xFFA0},  {0xFFF0, 0xFFFB}, {0x13430, 0x1345F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A},
    {0xE0000, 0xE0FFF}};

bool IsHidden(std::uint32_t code) {
  return std::ranges::any_of(
      kHidden, [code](const auto& range) { return code >= range.first && code <= range.second; });
}

// How many bytes the first character of well-formed UTF-8 has.
std::size_t LengthOfFirst(std::string_view utf8) {
  const unsigned lead = ByteOf(utf8.front());
  if (lead < 0xC0) return 1;
  if (lead < 0xE0) return 2;
  return lead < 0xF0 ? 3 : 4;
}

std::uint32_t CodeOf(std::string_view character) {
  if (character.size() == 1) return ByteOf(character.front());
  std::uint32_t code = ByteOf(character.front()) & (0x7FU >> character.size());
  for (const char c : character.substr(1)) code = code << 6 | (ByteOf(c) & 0x3FU);
  return code;
}

}  // namespace

std::vector<std::uint8_t> BytesOf(std::string_view text) {
  const auto* const first = reinterpret_cast<const std::uint8_t*>(text.data());
  return {first, first + text.size()};
}

std::string Printable(std::string_view text, std::size_t limit) {
  std::string_view kept = text.substr(0, limit);
  // Not inside of a character, which has at most three bytes behind its first.
  for (int i = 0; i < 3 && kept.size() < text.size() && !kept.empty(); ++i) {
    if ((ByteOf(text[kept.size()]) & 0xC0) != 0x80) break;
    kept.remove_suffix(1);
  }
  const bool is_utf8 = IsUtf8(kept);
  std::string line;
  for (std::size_t i = 0; i < kept.size();) {
    const std::string_view character = kept.substr(i, is_utf8 ? LengthOfFirst(kept.substr(i)) : 1);
    const bool is_foreign = !is_utf8 && ByteOf(kept[i]) >= 0x80;
    if (is_foreign || IsHidden(CodeOf(character))) {
      for (const char c : character) line += StringFormat("\\x%02x", ByteOf(c));
    } else {
      line += character;
    }
    i += character.size();
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
  return text.find(' ') == std::string_view::npos && Printable(text, text.size()) == text;
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
