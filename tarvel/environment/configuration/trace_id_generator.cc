#include "tarvel/environment/configuration/trace_id_generator.h"

#include <sys/random.h>

#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <random>

#include "base/process/forked_child.h"
#include "base/process/no_destructor.h"

namespace zo_tarvel {
namespace {

std::uint32_t Seed() {
  std::uint32_t seed = 0;
  if (getrandom(&seed, sizeof seed, 0) == sizeof seed) return seed;
  return static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
}

// Never destroyed: a thread may make an id while the process ends.
struct Generator {
  std::mutex lock;  // A leaf.
  std::mt19937 engine{Seed()};
  std::uniform_int_distribution<int> digit{0, 15};
};

Generator& TheGenerator() {
  static zo_base::NoDestructor<Generator> generator;
  // Otherwise a forked child would make the same random digits as its parent.
  [[maybe_unused]] static const bool registered =
      (zo_base::OnForkedChild([] { generator.Renew(); }), true);
  return *generator;
}

std::string ClockDigits() {
  const std::chrono::nanoseconds ticks = std::chrono::steady_clock::now().time_since_epoch();
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016" PRIx64, static_cast<std::uint64_t>(ticks.count()));
  return digits;
}

}  // namespace

std::string GenerateTraceId() {
  std::string id = ClockDigits();
  Generator& generator = TheGenerator();
  const std::lock_guard<std::mutex> guard(generator.lock);
  for (const int length : {8, 4, 4, 12}) {
    id += '-';
    for (int i = 0; i < length; ++i) id += "0123456789abcdef"[generator.digit(generator.engine)];
  }
  return id;
}

}  // namespace zo_tarvel
