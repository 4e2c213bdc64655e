#include "base/text/md5.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

// RFC 1321.
namespace zo_base {
namespace {

constexpr std::size_t kBlockSize = 64;
constexpr std::size_t kLengthSize = 8;
using State = std::array<std::uint32_t, 4>;

// How far each round turns its sum, by step modulo 4.
constexpr int kRotation[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

std::uint32_t LoadLittleEndian(const char* bytes) {
  std::uint32_t word = 0;
  for (int i = 3; i >= 0; --i) word = word << 8 | static_cast<unsigned char>(bytes[i]);
  return word;
}

// The integer part of 2^32 times |sin(step + 1)|, as the algorithm defines its constants.
const std::array<std::uint32_t, 64>& SineTable() {
  static const auto table = [] {
    std::array<std::uint32_t, 64> words{};
    for (std::size_t i = 0; i < words.size(); ++i) {
      const double sine = std::fabs(std::sin(static_cast<double>(i + 1)));
      words[i] = static_cast<std::uint32_t>(sine * 4294967296.0);
    }
    return words;
  }();
  return table;
}

struct Step {
  std::uint32_t mixed;
  std::size_t word;
};

Step MixStep(std::size_t i, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  switch (i / 16) {
    case 0:
      return {(b & c) | (~b & d), i};
    case 1:
      return {(d & b) | (~d & c), (5 * i + 1) % 16};
    case 2:
      return {b ^ c ^ d, (3 * i + 5) % 16};
    default:
      return {c ^ (b | ~d), 7 * i % 16};
  }
}

void DigestBlock(const char* block, State& state) {
  auto [a, b, c, d] = state;
  for (std::size_t i = 0; i < 64; ++i) {
    const Step step = MixStep(i, b, c, d);
    const std::uint32_t sum =
        a + step.mixed + SineTable()[i] + LoadLittleEndian(block + 4 * step.word);
    a = d;
    d = c;
    c = b;
    b += std::rotl(sum, kRotation[i / 16][i % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

// The message, a one bit, zeros up to the length field, and the length in bits.
std::string Padded(std::string_view text) {
  std::string padded(text);
  padded.push_back('\x80');
  while (padded.size() % kBlockSize != kBlockSize - kLengthSize) padded.push_back('\0');
  const std::uint64_t bits = std::uint64_t{text.size()} * 8;
  for (std::size_t i = 0; i < kLengthSize; ++i) {
    padded.push_back(static_cast<char>(bits >> (8 * i) & 0xff));
  }
  return padded;
}

}  // namespace

std::string Md5Hex(std::string_view text) {
  State state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  const std::string padded = Padded(text);
  for (std::size_t at = 0; at < padded.size(); at += kBlockSize) {
    DigestBlock(padded.data() + at, state);
  }
  std::string hex;
  for (const std::uint32_t word : state) {
    for (int shift = 0; shift < 32; shift += 8) {
      const unsigned byte = word >> shift & 0xff;
      hex += "0123456789abcdef"[byte >> 4];
      hex += "0123456789abcdef"[byte & 0xf];
    }
  }
  return hex;
}

}  // namespace zo_base
