#include "tarvel/environment/environment_config.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace zo_tarvel {
namespace {

std::shared_ptr<_EnvironmentConfig> Loaded(const _ZOTarvelEnvironmentSettings& settings) {
  auto config = std::make_shared<_EnvironmentConfig>();
  config->Load(settings);
  return config;
}

TEST(EnvironmentConfigTest, CleansTheTimeouts) {
  const struct {
    const char* name;
    int timeout, prefail;
    int cleaned_timeout, cleaned_prefail;
  } rows[] = {{"zero keeps both defaults", 0, 5000, 7000, 2000},
              {"negative keeps both defaults", INT32_MIN, INT32_MIN, 7000, 2000},
              {"too short is raised", 500, 100, 1000, 200},
              {"too long is lowered", INT32_MAX, INT32_MAX, 30000, 29920},
              {"prefail compares with the cleaned time-out", 500, 999, 1000, 999},
              {"prefail below its least", 5000, 199, 5000, 200}};
  for (const auto& row : rows) {
    _ZOTarvelEnvironmentSettings settings;
    settings.single_request_timeout = row.timeout;
    settings.single_request_prefail_timeout = row.prefail;
    const auto config = Loaded(settings);
    EXPECT_EQ(config->single_request_timeout(), row.cleaned_timeout) << row.name;
    EXPECT_EQ(config->single_request_prefail_timeout(), row.cleaned_prefail) << row.name;
  }
}

// The digests are those of md5sum.
#define IM_G1 "tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/"
#define SHOP "tarvel_comp/fb54f3c5992b96d001bb16e8e92d968d/"

TEST(EnvironmentConfigTest, DerivesADirectoryPerBusiness) {
  const struct {
    const char* business_type;
    const char* appdata_path;
    const char* log_path;
    const char* appdata_directory;
    const char* log_directory;
  } rows[] = {{"", "/data", "/log", "/data/" IM_G1, "/log/" IM_G1},
              {"shop", "", "/log/", "/log/" SHOP, "/log/" SHOP},
              {"shop", "C:\\app\\data\\", "", "C:/app/data/" SHOP, "C:/app/data/" SHOP},
              {"shop", "", "", "/" SHOP, "/" SHOP}};
  for (const auto& row : rows) {
    _ZOTarvelEnvironmentSettings settings;
    std::strcpy(settings.business_type, row.business_type);
    std::strcpy(settings.appdata_path, row.appdata_path);
    std::strcpy(settings.log_path, row.log_path);
    const auto config = Loaded(settings);
    EXPECT_EQ(config->appdata_path(), row.appdata_directory);
    EXPECT_EQ(config->log_path(), row.log_directory);
  }
}

TEST(EnvironmentConfigTest, ReadsATextThatFillsItsArrayToTheEnd) {
  _ZOTarvelEnvironmentSettings settings;
  std::memset(settings.business_type, 't', sizeof settings.business_type);
  std::memset(settings.business_token, 'k', sizeof settings.business_token);
  std::memset(settings.log_path, 'l', sizeof settings.log_path);
  const auto config = Loaded(settings);
  EXPECT_EQ(config->business_type(), std::string(32, 't'));
  EXPECT_EQ(config->GetBusinessToken(), std::string(128, 'k'));
  EXPECT_EQ(config->log_path().find("/tarvel_comp/"), 1024u);
}

}  // namespace
}  // namespace zo_tarvel
