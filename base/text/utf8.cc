#include "base/text/utf8.h"

#include <cstddef>

namespace zo_base {
namespace {

// What may follow a first byte: how many bytes, and the range of the second one, which keeps out
// long forms, surrogates and all beyond U+10FFFF.
struct Sequence {
  std::size_t following = 0;
  unsigned char lowest = 0x80;
  unsigned char highest = 0xbf;
};

// False for a byte that can't be the first.
bool SequenceOf(unsigned char first, Sequence& sequence) {
  if (first < 0x80) {
    sequence = {0};
  } else if (first >= 0xc2 && first <= 0xdf) {
    sequence = {1};
  } else if (first >= 0xe0 && first <= 0xef) {
    sequence = {2};
    if (first == 0xe0) sequence.lowest = 0xa0;
    if (first == 0xed) sequence.highest = 0x9f;
  } else if (first >= 0xf0 && first <= 0xf4) {
    sequence = {3};
    if (first == 0xf0) sequence.lowest = 0x90;
    if (first == 0xf4) sequence.highest = 0x8f;
  } else {
    return false;
  }
  return true;
}

bool IsIn(unsigned char byte, unsigned char lowest, unsigned char highest) {
  return byte >= lowest && byte <= highest;
}

}  // namespace

bool IsUtf8(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    Sequence sequence;
    if (!SequenceOf(static_cast<unsigned char>(bytes[at]), sequence)) return false;
    if (bytes.size() - at <= sequence.following) return false;
    for (std::size_t i = 1; i <= sequence.following; ++i) {
      const auto byte = static_cast<unsigned char>(bytes[at + i]);
      const bool is_second = i == 1;
      if (!IsIn(byte, is_second ? sequence.lowest : 0x80, is_second ? sequence.highest : 0xbf)) {
        return false;
      }
    }
    at += sequence.following + 1;
  }
  return true;
}

}  // namespace zo_base
