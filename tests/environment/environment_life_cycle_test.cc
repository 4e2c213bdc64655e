#include <gtest/gtest.h>
#include <malloc.h>
#include <tarvel/tarvel.h>

#include <cstddef>
#include <filesystem>

#include "tarvel/environment/lbs_service_factory.h"
#include "tests/environment/fake_lbs_service.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using test_support::TestSettings;

struct Footprint {
  std::ptrdiff_t threads;
  std::ptrdiff_t descriptors;
  std::size_t heap_bytes;
};

std::ptrdiff_t EntriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory),
                       std::filesystem::directory_iterator());
}

Footprint CurrentFootprint() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const std::size_t heap_bytes = 0;  // The sanitizer's allocator; it looks for leaks by itself.
#else
  const std::size_t heap_bytes = mallinfo2().uordblks;
#endif
  return {EntriesOf("/proc/self/task"), EntriesOf("/proc/self/fd"), heap_bytes};
}

// Start, use and exit, with tasks of every kind and timers in flight at the exit.
void LiveOnce() {
  const int id = StartTarvelEnvironment(TestSettings());
  IZOTarvelObject* object = GetTarvelObject(id);
  FakeLBSService* service = FakeLBSService::StartOne();
  for (int i = 0; i < 10; ++i) {
    service->PostTask([service] { service->PostTask([] {}); });
    service->PostPriorityTask([] {});
    service->PostDelayedTask(i, [] {});
    service->PostLoopTask(
        1, [] {}, -1);
    service->PostIdleTask([] {});
  }
  object->SetBusinessToken("token");
  object->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  ExitTarvelEnvironment(id);
}

TEST(EnvironmentLifeCycleTest, AThousandLivesLeaveNothingBehind) {
  FakeLBSService::Install();
  for (int round = 0; round < 10; ++round) LiveOnce();
  const Footprint early = CurrentFootprint();
  for (int round = 10; round < 1000; ++round) LiveOnce();
  const Footprint late = CurrentFootprint();
  SetLBSServiceFactory(nullptr);

  EXPECT_EQ(late.threads, early.threads);
  EXPECT_EQ(late.descriptors, early.descriptors);
  // Each life registers one process-exit handler in the C library's list, 32 bytes each. A leak of
  // anything else would come to more than the rest in 990 lives: the least block is 32 bytes.
  constexpr std::size_t kExitHandlers = 990 * 32;
  constexpr std::size_t kChance = 990 * 24;
  EXPECT_LE(late.heap_bytes, early.heap_bytes + kExitHandlers + kChance);
}

}  // namespace
}  // namespace zo_tarvel
