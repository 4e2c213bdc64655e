#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string>

#include "base/json/json11_dump_buffer.h"
#include "base/json/json11_kinds.h"
#include "base/json/json11_text.h"

namespace zo_base::json11 {
namespace {

// Enough digits to distinguish any two doubles.
constexpr int kDoublePrecision = 17;
// "-1.7976931348623157e+308" and to spare.
constexpr std::size_t kLongestNumber = 32;

template <class... Format>
void DumpNumber(DumpBuffer& out, Format... number_and_format) {
  char* const begin = out.Room(kLongestNumber);
  out.Commit(std::to_chars(begin, begin + kLongestNumber, number_and_format...).ptr);
}

constexpr std::ptrdiff_t kLongestEscape = 6;  // "\\u2028".
constexpr std::ptrdiff_t kLineSeparatorLength = 3;

bool IsLineSeparator(const char* text) {  // Reads no further than the NUL at the end.
  return text[0] == kLineSeparatorLead && text[1] == '\x80' &&
         (text[2] == '\xa8' || text[2] == '\xa9');
}

// Writes the dump of the byte or line separator at `from`. Returns the end.
char* WriteSpecial(const char* from, char* to) {
  if (IsLineSeparator(from)) {
    return std::copy_n(from[2] == '\xa8' ? "\\u2028" : "\\u2029", kLongestEscape, to);
  }
  const char c = *from;
  if (c == kLineSeparatorLead) {
    *to++ = c;
    return to;
  }
  *to++ = '\\';
  if (const auto place = kEscapedBytes.find(c); place != kEscapedBytes.npos) {
    *to++ = kEscapeLetters[place];
  } else {
    to = std::copy_n("u00", 3, to);
    *to++ = "0123456789abcdef"[c >> 4];
    *to++ = "0123456789abcdef"[c & 0xf];
  }
  return to;
}

void DumpString(const std::string& value, DumpBuffer& out) {
  constexpr std::ptrdiff_t kPiece = 64;
  out.Put("\"");
  const char* from = value.data();
  const char* const end = from + value.size();
  while (from < end) {
    char* to = out.Room(kPiece * kLongestEscape);
    const char* const piece_end = from + std::min(end - from, kPiece);
    while (from < piece_end) {
      if (IsNeverEscaped(*from)) {
        *to++ = *from++;
        continue;
      }
      to = WriteSpecial(from, to);
      from += IsLineSeparator(from) ? kLineSeparatorLength : 1;
    }
    out.Commit(to);
  }
  out.Put("\"");
}

constexpr std::size_t kQuotes = 2;  // Or brackets.
constexpr std::size_t kSeparator = 2;

}  // namespace

void DumpBuffer::MakeRoom() {
  // Growing a long string by steps would cost more than to estimate its length first. The estimate
  // is from samples, and may be far too high.
  constexpr std::size_t kMostReserved = std::size_t{1024} * 1024;
  if (!has_reserved_) {
    const std::size_t likely = JsonPayloads::Of(whole_).likely_dump_size();
    out_.reserve(out_.size() + std::min(likely, kMostReserved));
  }
  has_reserved_ = true;
  Flush();
}

void DumpBuffer::Flush() {
  out_.append(bytes_, at_);
  at_ = bytes_;
}

std::size_t JsonString::likely_dump_size() const { return value_.size() + kQuotes; }

std::size_t JsonArray::likely_dump_size() const {
  constexpr std::size_t kMostSamples = 16;
  const std::size_t samples = std::min(value_.size(), kMostSamples);
  if (samples == 0) return kQuotes;
  std::size_t size = 0;
  for (std::size_t sample = 0; sample < samples; ++sample) {
    const Json& item = value_[sample * value_.size() / samples];
    size += JsonPayloads::Of(item).likely_dump_size() + kSeparator;
  }
  return kQuotes + size * value_.size() / samples;
}

std::size_t JsonObject::likely_dump_size() const {
  std::size_t size = kQuotes;
  for (const auto& [key, value] : value_) {
    size += key.size() + kQuotes + kSeparator;
    size += JsonPayloads::Of(value).likely_dump_size() + kSeparator;
  }
  return size;
}

void JsonNull::dump(DumpBuffer& out) const { out.Put("null"); }
void JsonBoolean::dump(DumpBuffer& out) const { value_ ? out.Put("true") : out.Put("false"); }
void JsonInt::dump(DumpBuffer& out) const { DumpNumber(out, value_); }
void JsonInt64::dump(DumpBuffer& out) const { DumpNumber(out, value_); }
void JsonString::dump(DumpBuffer& out) const { DumpString(value_, out); }

void JsonDouble::dump(DumpBuffer& out) const {
  if (!std::isfinite(value_)) return out.Put("null");
  // As "%.17g" prints it, but never with a locale's decimal point.
  DumpNumber(out, value_, std::chars_format::general, kDoublePrecision);
}

void JsonArray::dump(DumpBuffer& out) const {
  out.Put("[");
  bool is_first = true;
  for (const Json& item : value_) {
    if (!is_first) out.Put(", ");
    is_first = false;
    JsonPayloads::Of(item).dump(out);
  }
  out.Put("]");
}

void JsonObject::dump(DumpBuffer& out) const {
  out.Put("{");
  bool is_first = true;
  for (const auto& [key, value] : value_) {
    if (!is_first) out.Put(", ");
    is_first = false;
    DumpString(key, out);
    out.Put(": ");
    JsonPayloads::Of(value).dump(out);
  }
  out.Put("}");
}

void Json::dump(std::string& out) const {
  DumpBuffer buffer(*this, out);
  payload().dump(buffer);
  buffer.Flush();
}

std::string Json::dump() const {
  std::string out;
  dump(out);
  return out;
}

}  // namespace zo_base::json11
