#include <charconv>
#include <cmath>
#include <cstddef>
#include <string>

#include "base/json11_value.h"

namespace zo_base::json11 {
namespace {

// Digits that tell any two doubles apart.
constexpr int kDoublePrecision = 17;
// "-1.7976931348623157e+308" and to spare.
constexpr std::size_t kLongestNumber = 32;

template <class... Format>
void AppendNumber(std::string& out, Format... number_and_format) {
  char digits[kLongestNumber];
  const auto end = std::to_chars(digits, digits + sizeof digits, number_and_format...).ptr;
  out.append(digits, end);
}

// The escape of a byte, or null when it stands for itself.
const char* EscapeOf(unsigned char byte) {
  switch (byte) {
    case '\\':
      return "\\\\";
    case '"':
      return "\\\"";
    case '\b':
      return "\\b";
    case '\t':
      return "\\t";
    case '\n':
      return "\\n";
    case '\f':
      return "\\f";
    case '\r':
      return "\\r";
    default:
      return nullptr;
  }
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

bool StandsForItself(unsigned char byte) {
  return byte >= kFirstPrintable && byte != '"' && byte != '\\' && byte != kLineSeparatorLead;
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

void DumpString(const std::string& value, std::string& out) {
  out += '"';
  for (std::size_t at = 0; at < value.size();) {
    const std::size_t run = at;
    while (at < value.size() && StandsForItself(static_cast<unsigned char>(value[at]))) ++at;
    out.append(value, run, at - run);
    if (at == value.size()) break;

    const auto byte = static_cast<unsigned char>(value[at]);
    if (byte == kLineSeparatorLead) {
      const bool separator = IsLineSeparator(value, at);
      if (separator) {
        out += value[at + 2] == '\xa8' ? "\\u2028" : "\\u2029";
      } else {
        out += value[at];
      }
      at += separator ? 3 : 1;
      continue;
    }
    if (const char* escape = EscapeOf(byte)) {
      out += escape;
    } else {
      AppendUnicodeEscape(byte, out);
    }
    ++at;
  }
  out += '"';
}

}  // namespace zo_base::json11
