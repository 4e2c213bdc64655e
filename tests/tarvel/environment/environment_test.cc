#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "base/thread/task_thread.h"
#include "tarvel/environment/configuration/environment_config.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/environment/tarvel_object_impl.h"
#include "tests/support/event.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using test_support::TestSettings;

class EnvironmentTest : public ::testing::Test {
 protected:
  ~EnvironmentTest() override {
    ExitFully();
    EXPECT_EQ(storage_->start_count, 0);
  }

  void ExitFully() {
    while (storage_->started) ExitTarvelEnvironment(0);
  }

  // Starts an environment and its service.
  static zo_base::TaskThread& StartService() {
    StartTarvelEnvironment(TestSettings());
    IZOTarvelLBSService* const service = GetTarvelObject(1)->GetLBSService();
    service->Init({});
    return dynamic_cast<zo_base::TaskThread&>(*service);
  }

  const std::shared_ptr<EnvironmentManagerStorage> storage_ = GetStorage();
};

TEST_F(EnvironmentTest, CountsStartsAndExitsAndTrapsWithoutItsObject) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
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
    const auto config = storage_->config;
    EXPECT_TRUE(storage_->started && !config->IsExiting());
    EXPECT_DEATH(StartTarvelEnvironment(TestSettings()), "");
    ExitTarvelEnvironment(0);
    EXPECT_TRUE(!storage_->started && config->IsExiting());
  }
}

TEST_F(EnvironmentTest, ACallbackMayRestartIt) {
  test_support::Event done;
  StartService().PostTask([&] {
    ExitTarvelEnvironment(1);
    EXPECT_FALSE(storage_->started);
    EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
    done.Set();
  });
  EXPECT_TRUE(done.Await());
  EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 1);
}

TEST_F(EnvironmentTest, ACallbackNeverWaitsForAnExitInProgress) {
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"releases its service", [] { GetTarvelObject(1)->ReleaseLBSService(); }},
      {"exits", [] { ExitTarvelEnvironment(1); }},
      {"starts", [] { EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 0); }}};
  for (const auto& [name, act] : rows) {
    test_support::Event entered, acted;
    StartService().PostTask([&, &act = act] {
      entered.Set();
      while (!storage_->gate.exit_in_progress()) std::this_thread::yield();
      act();
      acted.Set();
    });
    EXPECT_TRUE(entered.Await());
    ExitTarvelEnvironment(0);  // The object stays in the table while it is stopped.
    EXPECT_TRUE(acted.Await()) << name;
    EXPECT_FALSE(storage_->started);
  }
}

TEST_F(EnvironmentTest, CarriesExitsOfManyThreadsOutBeforeTheyReturn) {
  StartTarvelEnvironment(TestSettings());
  std::atomic<bool> done{false};
  const auto start_and_exit = [&done] {
    while (!done) {
      StartTarvelEnvironment(TestSettings());
      ExitTarvelEnvironment(0);
    }
  };
  std::thread first(start_and_exit), second(start_and_exit);
  for (int round = 0; round < 2000; ++round) {
    storage_->objects.Insert(7, std::make_shared<ZOTarvelObjectImpl>(7));
    ++storage_->start_count;
    ExitTarvelEnvironment(7);
    ASSERT_EQ(GetTarvelObject(7), nullptr);
  }
  done = true;
  first.join();
  second.join();
  EXPECT_EQ(storage_->start_count, 1);
}

TEST_F(EnvironmentTest, CarriesANestedExitOutAfterTheOuterOne) {
  // The task never runs; its captures are destroyed on the thread that releases the service.
  std::shared_ptr<void> exits_when_destroyed(nullptr, [](void*) {
    EXPECT_EQ(StartTarvelEnvironment(TestSettings()), 0);
    ExitTarvelEnvironment(0);
  });
  StartService().PostDelayedTask(60'000, [moved = std::move(exits_when_destroyed)] {});
  ExitTarvelEnvironment(1);
  EXPECT_EQ(storage_->start_count, 0);
}

TEST_F(EnvironmentTest, HundredsOfLivesLeaveNoThreadBehind) {
  for (int life = 0; life < 300; ++life) {  // Each with tasks in flight at the exit.
    zo_base::TaskThread& service = StartService();
    service.PostTask([&service] { service.PostTask([] {}); });
    service.PostDelayedTask(1, [] {});
    GetTarvelObject(1)->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
    ExitTarvelEnvironment(1);
  }
  // Of this one, of a sanitizer, and some joined ones that the system still lists.
  EXPECT_LT(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}), 100);
}

TEST(EnvironmentConfigTest, CleansTheTimeouts) {
  using Timeouts = std::pair<std::int32_t, std::int32_t>;  // Of a request, and until the next URL.
  const struct {
    const char* name;
    Timeouts given, cleaned;
  } rows[] = {{"zero keeps both defaults", {0, 5000}, {7000, 2000}},
              {"negative keeps both defaults", {INT32_MIN, INT32_MIN}, {7000, 2000}},
              {"too long is lowered", {INT32_MAX, INT32_MAX}, {30000, 29920}},
              {"prefail equal to time-out", {5000, 5000}, {5000, 4920}},
              {"prefail compares with the cleaned time-out", {500, 999}, {1000, 999}},
              {"prefail below its least", {1, 199}, {1000, 200}}};
  for (const auto& row : rows) {
    _ZOTarvelEnvironmentSettings settings;
    std::tie(settings.single_request_timeout, settings.single_request_prefail_timeout) = row.given;
    const auto config = std::make_shared<_EnvironmentConfig>();
    config->Load(settings);
    EXPECT_EQ(Timeouts(config->single_request_timeout(), config->single_request_prefail_timeout()),
              row.cleaned)
        << row.name;
  }
}

// The digests are those of md5sum.
#define IM_G1 "/tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/"
#define SHOP "/tarvel_comp/fb54f3c5992b96d001bb16e8e92d968d/"
#define FULL "/tarvel_comp/9d84d8f1e8ef5d4a4a47dd1eee481831/"

TEST(EnvironmentConfigTest, DerivesADirectoryPerBusinessEvenFromFullArrays) {
  const std::string full_path(1024, 'l');
  const struct {
    std::string business_type, appdata_path, log_path, directories;
  } rows[] = {{"", "/data", "/log", "/data" IM_G1 "/log" IM_G1},
              {"shop", "", "/log/", "/log" SHOP "/log" SHOP},
              {"shop", "C:\\app\\data\\", "", "C:/app/data" SHOP "C:/app/data" SHOP},
              {"shop", "", "", SHOP SHOP},
              {std::string(32, 't'), "", full_path, full_path + FULL + full_path + FULL}};
  for (const auto& row : rows) {
    _ZOTarvelEnvironmentSettings settings;
    row.business_type.copy(settings.business_type, sizeof settings.business_type);
    row.appdata_path.copy(settings.appdata_path, sizeof settings.appdata_path);
    row.log_path.copy(settings.log_path, sizeof settings.log_path);
    std::memset(settings.business_token, 'k', sizeof settings.business_token);
    const auto config = std::make_shared<_EnvironmentConfig>();
    config->Load(settings);
    EXPECT_EQ(config->appdata_path() + config->log_path(), row.directories);
    EXPECT_EQ(config->GetBusinessToken(), std::string(128, 'k'));
  }
}

TEST(EnvironmentConfigTest, SignalsNewTokensAndRequestedFamilies) {
  const auto config = std::make_shared<_EnvironmentConfig>();
  config->Load({});
  std::vector<std::string> told;
  config->Connect<const std::string>(SIG_BusinessTokenChanged, [&](const std::string& token) {
    told.push_back(token);
    EXPECT_EQ(config->GetBusinessToken(), token);  // The lock is recursive.
  });
  config->Connect<zo_net::AddressFamily>(
      SIG_NetworkChanged, [&](auto family) { told.push_back(std::to_string(family)); });
  for (const char* token : {"", "a", "a", ""}) config->SetBusinessToken(token);
  config->SetAddressFamily(zo_net::kAddressFamilyIPv4, false);
  config->SetAddressFamily(zo_net::kAddressFamilyIPv6, true);
  EXPECT_EQ(told, (std::vector<std::string>{"a", "", "2"}));
  EXPECT_EQ(config->address_family(), zo_net::kAddressFamilyIPv6);
}

}  // namespace
}  // namespace zo_tarvel
