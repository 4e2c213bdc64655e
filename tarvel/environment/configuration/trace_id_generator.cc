#include "tarvel/environment/configuration/trace_id_generator.h"

#include <sys/random.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <random>

#include "base/process/forked_child.h"
#include "base/process/no_destructor.h"

namespace zo_tarvel {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr int kClockDigits = 16;

std::uint32_t Seed() {
  std::uint32_t seed = 0;
  if (getrandom(&seed, sizeof seed, 0) == sizeof seed) return seed;
  return static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
}

// Not destroyed: a thread may make an id while the process ends.
struct Generator {
  std::mutex lock;  // A leaf.
  std::mt19937 engine{Seed()};
  std::uniform_int_distribution<int> digit{0, 15};
};

Generator& TheGenerator() {
  static zo_base::NoDestructor<Generator> generator;
  // A child would go on with the random digits of its parent.
  static const bool registered = (zo_base::OnForkedChild([] { generator.Renew(); }), true);
  static_cast<void>(registered);
  return *generator;
}

std::string ClockDigits() {
  auto ticks = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch() /
                                          std::chrono::nanoseconds(1));
  std::string digits(kClockDigits, '0');
  for (auto at = digits.rbegin(); at != digits.rend(); ++at, ticks >>= 4) {
    *at = kHexDigits[ticks & 0xf];
  }
  return digits;
}

}  // namespace

std::string GenerateTraceId() {
  std::string id = ClockDigits();
  Generator& generator = TheGenerator();
  const std::lock_guard<std::mutex> guard(generator.lock);
  for (const int length : {8, 4, 4, 12}) {
    id += '-';
    for (int i = 0; i < length; ++i) id += kHexDigits[generator.digit(generator.engine)];
  }
  return id;
}

}  // namespace zo_tarvel
