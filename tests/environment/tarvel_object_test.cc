#include "tarvel/environment/tarvel_object_impl.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/environment/lbs_service_factory.h"
#include "tarvel/environment/tarvel_object_table.h"
#include "tests/environment/fake_lbs_service.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using test_support::TestSettings;

class TarvelObjectTest : public ::testing::Test {
 protected:
  TarvelObjectTest() {
    FakeLBSService::Install();
    FakeLBSService::gathering_stopped = 0;
    StartTarvelEnvironment(TestSettings());
    object_ = GetTarvelObject(1);
  }
  ~TarvelObjectTest() override {
    ExitTarvelEnvironment(1);
    SetLBSServiceFactory({});
  }

  ZOTarvelObjectImpl& impl() { return dynamic_cast<ZOTarvelObjectImpl&>(*object_); }
  std::shared_ptr<_EnvironmentConfig> config() { return GetStorage()->config; }

  IZOTarvelObject* object_ = nullptr;
};

TEST_F(TarvelObjectTest, PassesNoticesOnToTheConfigurationAndItsListeners) {
  std::string token;
  zo_net::AddressFamily family = zo_net::kAddressFamilyAny;
  config()->Connect<const std::string>(SIG_BusinessTokenChanged,
                                       [&](const std::string& text) { token = text; });
  config()->Connect<zo_net::AddressFamily>(SIG_NetworkChanged,
                                           [&](zo_net::AddressFamily now) { family = now; });
  object_->SetBusinessToken("key");
  object_->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  EXPECT_EQ(token, "key");
  EXPECT_EQ(family, zo_net::kAddressFamilyIPv6);
  EXPECT_EQ(config()->address_family(), zo_net::kAddressFamilyIPv6);
  object_->SetBusinessToken(nullptr);
  EXPECT_EQ(config()->GetBusinessToken(), "");
}

TEST_F(TarvelObjectTest, HostsNoServiceUntilOneCanBeMade) {
  SetLBSServiceFactory({});
  EXPECT_EQ(object_->GetLBSService(), nullptr);
  FakeLBSService::Install();
  EXPECT_NE(object_->GetLBSService(), nullptr);
}

TEST_F(TarvelObjectTest, HostsOneServiceThatKnowsTheConfiguration) {
  auto* service = dynamic_cast<FakeLBSService*>(object_->GetLBSService());
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(object_->GetLBSService(), service);
  EXPECT_EQ(service->GetEnvironmentConfig(), config());
  EXPECT_FALSE(service->IsRunning());
}

TEST_F(TarvelObjectTest, StopEndsTheThreadAndKeepsTheService) {
  FakeLBSService* service = FakeLBSService::StartOne();
  ASSERT_TRUE(service->IsRunning());
  impl().Stop();
  EXPECT_FALSE(service->IsRunning());
  EXPECT_EQ(object_->GetLBSService(), service);
}

TEST_F(TarvelObjectTest, ReleaseIsForGood) {
  FakeLBSService::StartOne();
  impl().Release();
  EXPECT_EQ(FakeLBSService::gathering_stopped, 1);
  EXPECT_EQ(object_->GetLBSService(), nullptr);
}

TEST_F(TarvelObjectTest, MakesANewServiceAfterTheClientHasReleasedOne) {
  const std::weak_ptr<zo_base::BaseThread> first =
      FakeLBSService::StartOne()->shared_from_this<zo_base::BaseThread>();
  object_->ReleaseLBSService();
  EXPECT_TRUE(first.expired());
  FakeLBSService* second = FakeLBSService::StartOne();
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(second->IsRunning());
}

TEST(TarvelObjectTableTest, VisitsInOrderAndReplacesAnEntryOfTheSameId) {
  TarvelObjectTable table;
  table.ForEach(nullptr);
  const auto replaced = std::make_shared<ZOTarvelObjectImpl>(2);
  table.Insert(2, replaced);
  table.Insert(2, std::make_shared<ZOTarvelObjectImpl>(2));
  table.Insert(1, std::make_shared<ZOTarvelObjectImpl>(1));
  EXPECT_EQ(replaced.use_count(), 1);
  std::string order;
  table.ForEach([&](std::int32_t id, const auto&) {
    order += std::to_string(id);
    table.Erase(id);  // The lock is recursive and the walk goes on.
  });
  EXPECT_EQ(order, "12");
  EXPECT_EQ(table.Find(1), nullptr);
}

}  // namespace
}  // namespace zo_tarvel
