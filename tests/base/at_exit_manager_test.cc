#include "base/at_exit_manager.h"

#include <gmock/gmock.h>

#include <new>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/singleton.h"

namespace zo_base {
namespace {

using ::testing::ElementsAre;

TEST(AtExitManagerTest, LivesAsLongAsItIsHeld) {
  struct World;
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(GetAtExitManager<World>().second);
  const auto held = GetAtExitManager<World>();
  const auto again = GetAtExitManager<World>();
  EXPECT_TRUE(held.second);
  EXPECT_FALSE(again.second);
  EXPECT_EQ(again.first, held.first);
}

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
  Service() {
    if (std::exchange(next_raises, false)) throw std::bad_alloc();
    alive.insert(this), ++made;
  }
  ~Service() { alive.erase(this); }
  static inline bool next_raises = false;
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

TEST(SingletonTest, IsMadeByTheNextCallWhenItsConstructorHasRaised) {
  struct World;
  const auto get = Singleton<Service, World, true>::GetInstance_WithAtExitManager;
  const auto manager = GetAtExitManager<World>().first;
  Service::next_raises = true;
  EXPECT_THROW(get(), std::bad_alloc);
  EXPECT_NE(get(), nullptr);
}

}  // namespace
}  // namespace zo_base
