#include "base/at_exit_manager.h"

#include <gmock/gmock.h>

#include <memory>
#include <set>
#include <thread>

#include "base/singleton.h"

namespace zo_base {
namespace {

using ::testing::ElementsAre;

struct Service {
  Service() { alive.insert(this), ++made; }
  ~Service() { alive.erase(this); }
  static inline std::set<Service*> alive;
  static inline int made = 0;
};

TEST(SingletonTest, ExistsOnceUnderAHeldManagerAndIsFreshUnderTheNext) {
  struct World;
  using TheService = Singleton<Service, World, true>;
  const auto get = TheService::GetInstance_WithAtExitManager;
  Service::made = 0;
  for (int generation = 1; generation <= 20; ++generation) {
    EXPECT_EQ(get(), nullptr);
    auto manager = GetAtExitManager<World>().first;
    bool gone_before_older_tasks = false;
    manager->RegisterTask(
        [&] { gone_before_older_tasks = get() == nullptr && Service::alive.empty(); });
    std::thread other([&] { EXPECT_NE(get(), nullptr); });
    auto held = TheService::GetHeldInstance();
    other.join();
    manager.reset();
    EXPECT_THAT(Service::alive, ElementsAre(held.get()));  // It holds its manager.
    EXPECT_EQ(get(), held.get());
    EXPECT_EQ(Service::made, generation);
    held.reset();
    EXPECT_TRUE(gone_before_older_tasks);
  }
}

}  // namespace
}  // namespace zo_base
