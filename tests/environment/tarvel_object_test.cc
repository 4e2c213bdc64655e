#include "tarvel/environment/tarvel_object_impl.h"

#include <gtest/gtest.h>

#include <memory>

#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/environment/lbs_service_factory.h"
#include "tests/environment/fake_lbs_service.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

class TarvelObjectTest : public ::testing::Test {
 protected:
  TarvelObjectTest() {
    FakeLBSService::Install();
    StartTarvelEnvironment(test_support::TestSettings());
    object_ = GetTarvelObject(1);
  }
  ~TarvelObjectTest() override {
    ExitTarvelEnvironment(1);
    SetLBSServiceFactory(nullptr);
  }

  IZOTarvelObject* object_ = nullptr;
};

TEST_F(TarvelObjectTest, PassesATokenOnToTheConfiguration) {
  const auto config = GetStorage()->config;
  object_->SetBusinessToken("key");
  EXPECT_EQ(config->GetBusinessToken(), "key");
  object_->SetBusinessToken(nullptr);
  EXPECT_EQ(config->GetBusinessToken(), "");
}

TEST_F(TarvelObjectTest, HostsOneServiceThatKnowsTheConfigurationOnceOneCanBeMade) {
  SetLBSServiceFactory(nullptr);
  EXPECT_EQ(object_->GetLBSService(), nullptr);
  FakeLBSService::Install();
  auto* service = dynamic_cast<FakeLBSService*>(object_->GetLBSService());
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(object_->GetLBSService(), service);
  EXPECT_EQ(service->GetEnvironmentConfig(), GetStorage()->config);
  EXPECT_FALSE(service->IsRunning());
}

TEST_F(TarvelObjectTest, MakesANewServiceAfterTheClientHasReleasedOneButNoneAfterItsOwnRelease) {
  const std::weak_ptr<zo_base::BaseThread> first =
      FakeLBSService::StartOne()->shared_from_this<zo_base::BaseThread>();
  object_->ReleaseLBSService();
  EXPECT_TRUE(first.expired());
  FakeLBSService* second = FakeLBSService::StartOne();
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(second->IsRunning());
  auto& impl = dynamic_cast<ZOTarvelObjectImpl&>(*object_);
  impl.Stop();
  EXPECT_FALSE(second->IsRunning());
  EXPECT_EQ(object_->GetLBSService(), second);
  impl.Release();
  EXPECT_EQ(object_->GetLBSService(), nullptr);
}

}  // namespace
}  // namespace zo_tarvel
