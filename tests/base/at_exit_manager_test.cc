#include "base/at_exit_manager.h"

#include <gmock/gmock.h>

#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "base/singleton.h"

namespace zo_base {
namespace {

using ::testing::ElementsAre;

TEST(AtExitManagerTest, RunsItsTasksLastOneFirstAndATaskAddedByATaskNext) {
  struct World;
  std::vector<std::string> ran;
  auto manager = GetAtExitManager<World>().first;
  manager->RegisterTask([&] { ran.push_back("A"); });
  manager->RegisterTask([&, raw = manager.get()] {
    ran.push_back("B");
    EXPECT_TRUE(GetAtExitManager<World>().second);  // One that comes and goes meanwhile.
    raw->RegisterTask([&] { ran.push_back("added by B"); });
  });
  manager->RegisterTask(nullptr);
  manager->RegisterCallback([](void* to) { static_cast<decltype(&ran)>(to)->push_back("C"); },
                            &ran);
  EXPECT_THAT(ran, ElementsAre());
  manager.reset();
  EXPECT_THAT(ran, ElementsAre("C", "B", "added by B", "A"));
}

struct Service {
  Service() { alive.insert(this), ++made; }
  ~Service() { alive.erase(this); }
  static inline std::set<Service*> alive;
  static inline int made = 0;
};

TEST(SingletonTest, ExistsOnceUnderAHeldManagerAndIsFreshUnderTheNext) {
  struct World;
  const auto get = Singleton<Service, World, true>::GetInstance_WithAtExitManager;
  Service::made = 0;
  int ended_before_older_tasks = 0;
  for (int generation = 1; generation <= 20; ++generation) {
    EXPECT_EQ(get(), nullptr);
    const auto manager = GetAtExitManager<World>().first;
    manager->RegisterTask(
        [&] { ended_before_older_tasks += get() == nullptr && Service::alive.empty(); });
    std::thread other([&] { EXPECT_NE(get(), nullptr); });
    const Service* const made = get();
    other.join();
    EXPECT_THAT(Service::alive, ElementsAre(made));
    EXPECT_EQ(Service::made, generation);
  }
  EXPECT_EQ(ended_before_older_tasks, 20);
}

TEST(SingletonTest, LivesOnWhileAHeldInstanceHoldsItsManager) {
  struct World;
  using TheService = Singleton<Service, World, true>;
  auto manager = GetAtExitManager<World>().first;
  auto held = TheService::GetHeldInstance();
  manager.reset();
  EXPECT_EQ(TheService::GetInstance_WithAtExitManager(), held.get());
  EXPECT_THAT(Service::alive, ElementsAre(held.get()));
  held.reset();
  EXPECT_THAT(Service::alive, ElementsAre());
}

TEST(SingletonTest, IsFreshUnderAManagerThatComesBeforeTheOldOneHasGone) {
  struct World;
  const auto get = Singleton<Service, World, true>::GetInstance_WithAtExitManager;
  auto manager = GetAtExitManager<World>().first;
  std::shared_ptr<_AtExitManager<World>> next;
  Service* fresh = nullptr;
  EXPECT_NE(get(), nullptr);
  manager->RegisterTask([&] {
    next = GetAtExitManager<World>().first;
    fresh = get();
  });
  manager.reset();
  EXPECT_THAT(Service::alive, ElementsAre(fresh));
  EXPECT_EQ(get(), fresh);
}

}  // namespace
}  // namespace zo_base
