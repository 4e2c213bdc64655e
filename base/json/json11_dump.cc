#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string>

#include "base/json/json11_value.h"

namespace zo_base::json11 {
namespace {

// Enough digits to distinguish any two doubles.
constexpr int kDoublePrecision = 17;
// "-1.7976931348623157e+308" and to spare.
constexpr std::size_t kLongestNumber = 32;

template <class... Format>
void AppendNumber(std::string& out, Format... number_and_format) {
  char digits[kLongestNumber];
  const auto end = std::to_chars(digits, digits + sizeof digits, number_and_format...).ptr;
  out.append(digits, end);
}

void AppendUnicodeEscape(unsigned char byte, std::string& out) {
  out += "\\u00";
  out += "0123456789abcdef"[byte >> 4];
  out += "0123456789abcdef"[byte & 0xf];
}

// U+2028 and U+2029 are E2 80 A8 and E2 80 A9.
bool IsLineSeparator(const std::string& text, std::size_t at) {
  return text.compare(at, 2, "\xe2\x80") == 0 && at + 2 < text.size() &&
         (text[at + 2] == '\xa8' || text[at + 2] == '\xa9');
}

constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kLineSeparatorLead = 0xe2;

// Whether a byte needs no escape.
constexpr std::array<bool, 256> kPlain = [] {
  std::array<bool, 256> plain{};
  for (unsigned byte = kFirstPrintable; byte < plain.size(); ++byte) {
    plain[byte] = byte != '"' && byte != '\\' && byte != kLineSeparatorLead;
  }
  return plain;
}();

bool StandsForItself(char byte) { return kPlain[static_cast<unsigned char>(byte)]; }

// Appends the byte at `at`, which isn't plain, or the sequence there. Returns its length.
std::size_t AppendSpecial(const std::string& value, std::size_t at, std::string& out) {
  const auto byte = static_cast<unsigned char>(value[at]);
  if (byte == kLineSeparatorLead) {
    if (IsLineSeparator(value, at)) {
      out += value[at + 2] == '\xa8' ? "\\u2028" : "\\u2029";
      return 3;
    }
    out += value[at];
  } else if (const auto place = kEscapedBytes.find(value[at]); place != kEscapedBytes.npos) {
    out.append("\\").append(1, kEscapeLetters[place]);
  } else {
    AppendUnicodeEscape(byte, out);
  }
  return 1;
}

std::size_t EndOfPlainRun(const std::string& value, std::size_t at) {
  while (at < value.size() && StandsForItself(value[at])) ++at;
  return at;
}

}  // namespace

void DumpNumber(long long value, std::string& out) { AppendNumber(out, value); }

void DumpNumber(double value, std::string& out) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  // As "%.17g" prints it, but never with a locale's decimal point.
  AppendNumber(out, value, std::chars_format::general, kDoublePrecision);
}

std::size_t LikelyDumpSize(const Json& value) {
  constexpr std::size_t kLikelyNumber = 8;
  constexpr std::size_t kQuotes = 2, kSeparator = 2;
  std::size_t size = kQuotes;  // Or the brackets.
  switch (value.type()) {
    case Json::STRING:
      return size + value.string_value().size();
    case Json::ARRAY:
      for (const Json& item : value.array_items()) size += LikelyDumpSize(item) + kSeparator;
      return size;
    case Json::OBJECT:
      for (const auto& [key, member] : value.object_items()) {
        size += key.size() + kQuotes + kSeparator + LikelyDumpSize(member) + kSeparator;
      }
      return size;
    default:
      return kLikelyNumber;
  }
}

void DumpString(const std::string& value, std::string& out) {
  std::size_t plain_end = EndOfPlainRun(value, 0);
  if (plain_end == value.size()) {
    // Nearly every string: grow `out` once.
    const std::size_t begin = out.size();
    out.append(value.size() + 2, '"');
    value.copy(out.data() + begin + 1, value.size());
    return;
  }
  out += '"';
  for (std::size_t at = 0; at < value.size(); plain_end = EndOfPlainRun(value, at)) {
    out.append(value, at, plain_end - at);
    at = plain_end;
    if (at < value.size()) at += AppendSpecial(value, at, out);
  }
  out += '"';
}

}  // namespace zo_base::json11
