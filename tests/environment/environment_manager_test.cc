#include "tarvel/environment/environment_manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/environment/lbs_service_factory.h"
#include "tarvel/environment/tarvel_object_impl.h"
#include "tests/environment/fake_lbs_service.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using test_support::TestSettings;

class EnvironmentTest : public ::testing::Test {
 protected:
  EnvironmentTest() { FakeLBSService::Install(); }
  ~EnvironmentTest() override {
    while (storage_->started) ExitTarvelEnvironment(0);
    EXPECT_EQ(storage_->start_count, 0);
    SetLBSServiceFactory(nullptr);
  }

  // Starts an environment with a service, and runs `callback` on the service's thread.
  void RunOnServiceThread(std::function<void()> callback) {
    StartTarvelEnvironment(TestSettings());
    FakeLBSService::StartOne()->PostTask(std::move(callback));
  }

  const std::shared_ptr<EnvironmentManagerStorage> storage_ = GetStorage();
};

TEST_F(EnvironmentTest, CountsStartsAndExitsOfAnyIdAndIgnoresFurtherSettings) {
  ExitTarvelEnvironment(1);  // Without a start: not counted.
  for (int life = 0; life < 2; ++life) {
    for (int start = 0; start < 3; ++start) {
      auto settings = TestSettings();
      settings.client_type = 3 * life + start;
      EXPECT_EQ(StartTarvelEnvironment(settings), 1);
    }
    EXPECT_EQ(storage_->config->client_type(), 3 * life);
    ExitTarvelEnvironment(7);
    EXPECT_NE(GetTarvelObject(1), nullptr);
    EXPECT_EQ(GetTarvelObject(0), nullptr);
    ExitTarvelEnvironment(1);  // Gives up the object, and the environment stays.
    EXPECT_EQ(GetTarvelObject(1), nullptr);
    EXPECT_TRUE(storage_->started && !storage_->config->IsExiting());
    const auto late_holder = storage_->config;
    ExitTarvelEnvironment(0);
    EXPECT_FALSE(storage_->started);
    EXPECT_TRUE(late_holder->IsExiting());
  }
}

TEST_F(EnvironmentTest, ACallbackMayTakeItDownAndStartItAnew) {
  for (const bool starts_anew : {false, true}) {
    std::promise<int> id;
    RunOnServiceThread([&] {
      ExitTarvelEnvironment(1);
      EXPECT_FALSE(storage_->started);
      id.set_value(starts_anew ? StartTarvelEnvironment(TestSettings()) : 0);
    });
    EXPECT_EQ(id.get_future().get(), starts_anew ? 1 : 0);
    // The next life begins with the thread of the last one gone for good.
    EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
    while (storage_->started) ExitTarvelEnvironment(0);
  }
}

TEST_F(EnvironmentTest, ACallbackDoesNotWaitForAnExitThatWaitsForItWhateverItDoes) {
  const struct {
    const char* name;
    std::function<void()> act;
  } rows[] = {{"releases its service",
               [] {
                 if (IZOTarvelObject* object = GetTarvelObject(1)) object->ReleaseLBSService();
               }},
              {"exits", [] { ExitTarvelEnvironment(1); }},
              {"starts", [] { EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 0); }}};
  for (const auto& row : rows) {
    std::promise<void> entered, acted;
    RunOnServiceThread([&] {
      entered.set_value();
      while (!storage_->exit_in_progress) std::this_thread::yield();
      row.act();
      acted.set_value();
    });
    entered.get_future().wait();
    ExitTarvelEnvironment(0);  // The object stays in the table while it is stopped.
    EXPECT_EQ(acted.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready)
        << row.name;
    EXPECT_FALSE(storage_->started);
  }
}

TEST_F(EnvironmentTest, StartsAndExitsOfManyThreadsAreCarriedOutWhenTheyReturn) {
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
  EXPECT_EQ(storage_->start_count, 1);
}

TEST_F(EnvironmentTest, AnExitInTheMiddleOfAnExitOnTheSameThreadIsCarriedOutAfterIt) {
  for (int i = 0; i < 3; ++i) StartTarvelEnvironment(TestSettings());
  // The task never runs; its captures die on the thread that releases the service.
  std::shared_ptr<void> exits_when_destroyed(nullptr, [](void*) { ExitTarvelEnvironment(0); });
  FakeLBSService::StartOne()->PostDelayedTask(60'000, [moved = std::move(exits_when_destroyed)] {});
  ExitTarvelEnvironment(1);
  EXPECT_EQ(storage_->start_count, 1);
}

// Each with tasks of every kind and timers in flight at the exit.
TEST_F(EnvironmentTest, HundredsOfLivesLeaveNoThreadBehind) {
  const auto threads = [] {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator());
  };
  const auto before = threads();
  for (int life = 0; life < 300; ++life) {
    StartTarvelEnvironment(TestSettings());
    FakeLBSService* const service = FakeLBSService::StartOne();
    service->PostTask([service] { service->PostTask([] {}); });
    service->PostDelayedTask(1, [] {});
    service->PostLoopTask(
        1, [] {}, -1);
    GetTarvelObject(1)->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
    ExitTarvelEnvironment(1);
  }
  EXPECT_EQ(threads(), before);
}

}  // namespace
}  // namespace zo_tarvel
