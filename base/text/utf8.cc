#include "base/text/utf8.h"

#include <bit>
#include <cstddef>

namespace zo_base {
namespace {

constexpr std::uint32_t kHighestCode = 0x10ffff;

std::size_t LengthOf(std::uint32_t code) {
  if (code < 0x80) return 1;
  if (code < 0x800) return 2;
  return code < 0x10000 ? 3 : 4;
}

bool IsContinuation(char byte) { return (byte & 0xc0) == 0x80; }
bool IsSurrogate(std::uint32_t code) { return code >= 0xd800 && code <= 0xdfff; }

// How long the sequence at the front of `bytes` is, which isn't empty; 0 when it is malformed.
std::size_t LengthOfFirst(std::string_view bytes) {
  const auto first = static_cast<unsigned char>(bytes[0]);
  if (first < 0x80) return 1;
  const auto length = static_cast<std::size_t>(std::countl_one(first));
  if (length < 2 || length > 4 || length > bytes.size()) return 0;
  std::uint32_t code = first & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (!IsContinuation(bytes[i])) return 0;
    code = code << 6 | (bytes[i] & 0x3f);
  }
  const bool well_formed = LengthOf(code) == length && code <= kHighestCode && !IsSurrogate(code);
  return well_formed ? length : 0;
}

}  // namespace

bool IsUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = LengthOfFirst(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

void AppendUtf8(std::uint32_t code, std::string& out) {
  const std::size_t length = LengthOf(code);
  if (length == 1) {
    out += static_cast<char>(code);
    return;
  }
  std::size_t shift = 6 * (length - 1);
  out += static_cast<char>(0xf00U >> length | code >> shift);  // As many ones as bytes, and a zero.
  while (shift > 0) {
    shift -= 6;
    out += static_cast<char>(0x80 | (code >> shift & 0x3f));
  }
}

}  // namespace zo_base
