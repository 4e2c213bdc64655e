#include "tarvel/environment/environment_manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/at_exit_manager.h"
#include "base/singleton.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/environment/lbs_service_factory.h"
#include "tarvel/environment/tarvel_object_impl.h"
#include "tests/environment/fake_lbs_service.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using test_support::TestSettings;

_ZOTarvelEnvironmentSettings SettingsOf(const char* business_type) {
  _ZOTarvelEnvironmentSettings settings = TestSettings();
  std::strcpy(settings.business_type, business_type);
  return settings;
}

class EnvironmentManagerTest : public ::testing::Test {
 protected:
  ~EnvironmentManagerTest() override {
    while (storage_->started) ExitTarvelEnvironment(0);
    EXPECT_EQ(storage_->start_count, 0);
  }

  const std::shared_ptr<EnvironmentManagerStorage> storage_ = GetStorage();
};

TEST_F(EnvironmentManagerTest, AnswersIdOneAndTheObjectBehindIt) {
  EXPECT_EQ(GetTarvelObject(1), nullptr);
  EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
  EXPECT_NE(GetTarvelObject(1), nullptr);
  EXPECT_EQ(GetTarvelObject(0), nullptr);
  EXPECT_EQ(GetTarvelObject(2), nullptr);
  ExitTarvelEnvironment(1);
  EXPECT_EQ(GetTarvelObject(1), nullptr);
}

TEST_F(EnvironmentManagerTest, CountsFurtherStartsAndIgnoresTheirSettings) {
  StartTarvelEnvironment(SettingsOf("first"));
  EXPECT_EQ(StartTarvelEnvironment(SettingsOf("second")), 1);
  EXPECT_EQ(storage_->start_count, 2);
  EXPECT_EQ(storage_->config->business_type(), "first");
}

TEST_F(EnvironmentManagerTest, TheFirstOfTwoExitsGivesUpTheObjectAndTheSecondTheEnvironment) {
  StartTarvelEnvironment(TestSettings());
  StartTarvelEnvironment(TestSettings());
  ExitTarvelEnvironment(1);
  EXPECT_EQ(GetTarvelObject(1), nullptr);
  EXPECT_TRUE(storage_->started);
  ExitTarvelEnvironment(1);
  EXPECT_FALSE(storage_->started);
}

TEST_F(EnvironmentManagerTest, CountsExitsOfIdZeroAndOfUnknownIds) {
  StartTarvelEnvironment(TestSettings());
  StartTarvelEnvironment(TestSettings());
  ExitTarvelEnvironment(7);
  EXPECT_NE(GetTarvelObject(1), nullptr);
  ExitTarvelEnvironment(0);
  EXPECT_FALSE(storage_->started);
  EXPECT_EQ(GetTarvelObject(1), nullptr);
}

TEST_F(EnvironmentManagerTest, IgnoresAnExitWithoutAStart) {
  ExitTarvelEnvironment(1);
  EXPECT_EQ(storage_->start_count, 0);
  EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
  EXPECT_EQ(storage_->start_count, 1);
}

TEST_F(EnvironmentManagerTest, ReadsNewSettingsInANewLifeAndForgetsTheOldConfiguration) {
  StartTarvelEnvironment(SettingsOf("first"));
  const std::weak_ptr<_EnvironmentConfig> old_config = storage_->config;
  auto* old_getter = dynamic_cast<EnvironmentConfigGetterBase*>(GetTarvelObject(1));
  EXPECT_EQ(old_getter->GetEnvironmentConfig(), storage_->config);
  ExitTarvelEnvironment(1);
  EXPECT_TRUE(old_config.expired());
  EXPECT_EQ(StartTarvelEnvironment(SettingsOf("second")), 1);
  EXPECT_EQ(storage_->config->business_type(), "second");
}

TEST_F(EnvironmentManagerTest, ALateHolderOfTheConfigurationSeesThatTheEnvironmentIsExiting) {
  StartTarvelEnvironment(TestSettings());
  const auto config = storage_->config;
  EXPECT_FALSE(config->IsExiting());
  ExitTarvelEnvironment(1);
  EXPECT_TRUE(config->IsExiting());
}

struct Counted {
  Counted() { ++living; }
  ~Counted() { --living; }
  static inline int living = 0;
};

TEST_F(EnvironmentManagerTest, SingletonsLiveAsLongAsTheEnvironment) {
  using CountedSingleton = zo_base::Singleton<Counted, zo_base::TarvelObject, true>;
  EXPECT_EQ(CountedSingleton::GetInstance_WithAtExitManager(), nullptr);
  StartTarvelEnvironment(TestSettings());
  EXPECT_NE(CountedSingleton::GetInstance_WithAtExitManager(), nullptr);
  EXPECT_EQ(Counted::living, 1);
  ExitTarvelEnvironment(1);
  EXPECT_EQ(Counted::living, 0);
}

TEST_F(EnvironmentManagerTest, RunsStartsAndExitsOfManyThreadsOneAtATime) {
  StartTarvelEnvironment(TestSettings());
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
        ExitTarvelEnvironment(0);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(storage_->start_count, 1);
}

using EnvironmentDeathTest = EnvironmentManagerTest;

TEST_F(EnvironmentDeathTest, TrapsAStartAfterTheObjectWasGivenUp) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  StartTarvelEnvironment(TestSettings());
  StartTarvelEnvironment(TestSettings());
  ExitTarvelEnvironment(1);
  EXPECT_DEATH(StartTarvelEnvironment(TestSettings()), "");
}

// What a client may do from a callback on a thread of the library.
class CallbackTest : public EnvironmentManagerTest {
 protected:
  CallbackTest() { FakeLBSService::Install(); }
  ~CallbackTest() override { SetLBSServiceFactory({}); }

  // Starts an environment with a service, and runs `callback` on the service's thread.
  void RunOnServiceThread(std::function<void()> callback) {
    StartTarvelEnvironment(TestSettings());
    FakeLBSService::StartOne()->PostTask(std::move(callback));
  }
};

TEST_F(CallbackTest, MayTakeTheEnvironmentDown) {
  std::promise<bool> down;
  RunOnServiceThread([&] {
    ExitTarvelEnvironment(1);
    down.set_value(!storage_->started);
  });
  EXPECT_TRUE(down.get_future().get());
  // The next life begins with the thread of the last one gone for good.
  EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
}

TEST_F(CallbackTest, MayTakeTheEnvironmentDownAndStartItAnew) {
  std::promise<int> id;
  RunOnServiceThread([&] {
    ExitTarvelEnvironment(1);
    id.set_value(StartTarvelEnvironment(TestSettings()));
  });
  EXPECT_EQ(id.get_future().get(), 1);
}

TEST_F(CallbackTest, NeitherExitNorStartWaitsForAnExitThatJoinsItsThread) {
  std::promise<void> entered;
  std::promise<int> id;
  RunOnServiceThread([&] {
    entered.set_value();
    while (!storage_->exit_in_progress) std::this_thread::yield();
    ExitTarvelEnvironment(0);
    id.set_value(StartTarvelEnvironment(TestSettings()));
  });
  StartTarvelEnvironment(TestSettings());
  entered.get_future().wait();
  // Of two starts this gives back one, and joins the service's thread on the way. The callback's
  // own exit is carried out here too.
  ExitTarvelEnvironment(1);
  EXPECT_EQ(id.get_future().get(), 0);
  EXPECT_FALSE(storage_->started);
}

// What a callback may do while an exit, on another thread, waits for the callback's thread to end.
struct DuringAnExitCase {
  const char* name;
  void (*act)();
};
class DuringAnExitTest : public CallbackTest,
                         public ::testing::WithParamInterface<DuringAnExitCase> {};

TEST_P(DuringAnExitTest, DoesNotWaitForTheExit) {
  std::promise<void> entered, acted;
  RunOnServiceThread([&] {
    entered.set_value();
    while (!storage_->exit_in_progress) std::this_thread::yield();
    GetParam().act();
    acted.set_value();
  });
  entered.get_future().wait();
  ExitTarvelEnvironment(0);  // The object stays in the table while it is stopped.
  EXPECT_EQ(acted.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_FALSE(storage_->started);
}

INSTANTIATE_TEST_SUITE_P(Callback, DuringAnExitTest,
                         ::testing::ValuesIn(std::vector<DuringAnExitCase>{
                             {"LooksForItsObject", [] { GetTarvelObject(1); }},
                             {"ReleasesItsService",
                              [] {
                                if (IZOTarvelObject* object = GetTarvelObject(1))
                                  object->ReleaseLBSService();
                              }},
                             {"GetsItsService",
                              [] {
                                if (IZOTarvelObject* object = GetTarvelObject(1))
                                  object->GetLBSService();
                              }},
                             {"Exits", [] { ExitTarvelEnvironment(1); }},
                             {"Starts",
                              [] { EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 0); }}}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(CallbackTest, AnExitOnAClientsThreadIsCarriedOutWhenItReturns) {
  StartTarvelEnvironment(TestSettings());
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      while (!done) {
        StartTarvelEnvironment(TestSettings());
        ExitTarvelEnvironment(0);
      }
    });
  }
  for (int round = 0; round < 2000; ++round) {
    storage_->objects.Insert(7, std::make_shared<ZOTarvelObjectImpl>(7));
    ++storage_->start_count;
    ExitTarvelEnvironment(7);
    ASSERT_EQ(GetTarvelObject(7), nullptr);
  }
  done = true;
  for (auto& thread : threads) thread.join();
}

TEST_F(CallbackTest, AnExitLeftInTheQueueIsOfTheLifeBefore) {
  storage_->exits.Push({.id = 1});
  EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
  EXPECT_TRUE(storage_->started);
}

TEST_F(CallbackTest, AnExitInTheMiddleOfAnExitOnTheSameThreadIsCarriedOutAfterIt) {
  for (int i = 0; i < 3; ++i) StartTarvelEnvironment(TestSettings());
  // The task never runs; its captures die on the thread that releases the service.
  std::shared_ptr<void> exits_when_destroyed(nullptr, [](void*) { ExitTarvelEnvironment(0); });
  FakeLBSService::StartOne()->PostDelayedTask(60'000, [moved = std::move(exits_when_destroyed)] {});
  ExitTarvelEnvironment(1);
  EXPECT_EQ(storage_->start_count, 1);
}

}  // namespace
}  // namespace zo_tarvel
