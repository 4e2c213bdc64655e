#include "tarvel/environment/environment_config.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace zo_tarvel {
namespace {

using namespace std::string_literals;

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
              {"im_g1", "/data", "", "/data/" IM_G1, "/data/" IM_G1},
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
  std::memset(settings.business_version, 'v', sizeof settings.business_version);
  std::memset(settings.appdata_path, 'a', sizeof settings.appdata_path);
  std::memset(settings.log_path, 'l', sizeof settings.log_path);
  const auto config = Loaded(settings);
  EXPECT_EQ(config->business_type(), std::string(32, 't'));
  EXPECT_EQ(config->GetBusinessToken(), std::string(128, 'k'));
  EXPECT_EQ(config->business_version(), std::string(128, 'v'));
  EXPECT_EQ(config->appdata_path().find("/tarvel_comp/"), 1024u);
  EXPECT_EQ(config->log_path().find("/tarvel_comp/"), 1024u);
}

// Of the switches, the first two are on unless -1 is given, and the last two off unless 1 is.
TEST(EnvironmentConfigTest, FormatsItsBanner) {
  const struct {
    int given;
    const char *first, *last;
  } rows[] = {
      {0, "true", "false"}, {1, "true", "true"}, {2, "true", "false"}, {-1, "false", "false"}};
  for (const auto& [given, first, last] : rows) {
    _ZOTarvelEnvironmentSettings settings;
    std::strcpy(settings.business_type, "shop");
    std::strcpy(settings.business_token, "key");
    std::strcpy(settings.business_version, "1.2");
    settings.sv = 3;
    settings.pv = -4;
    settings.client_type = 5;
    settings.only_https_supported = 7;
    settings.enable_httpdns = settings.try_http_request_on_netunav = given;
    settings.http_request_ip_preferred = settings.enable_exception_data_reporting = given;
    EXPECT_EQ(Loaded(settings)->FormatBanner(),
              "zo_tarvel config:\r\n --business type:shop\r\n --business token:key\r\n"
              " --business version:1.2_3_-4\r\n --client type:5\r\n --appdata path:/" SHOP
              "\r\n --log path:/" SHOP "\r\n --enable httpdns:"s +
                  first + "\r\n --try http request on netunav:" + first +
                  "\r\n --only https supported:true\r\n --single request timeout:7000\r\n"
                  " --single request prefail timeout:2000\r\n --http request ip preferred:" +
                  last + "\r\n --enable exception data reporting:" + last + "\r\n");
  }
}

TEST(EnvironmentConfigTest, TellsOfATokenOnlyWhenItDiffersAndOfAFamilyOnlyWhenAsked) {
  const auto config = Loaded({});
  std::vector<std::string> told;
  config->Connect<const std::string>(SIG_BusinessTokenChanged, [&](const std::string& token) {
    told.push_back(token);
    EXPECT_EQ(config->GetBusinessToken(), token);  // The lock is recursive.
  });
  config->Connect<zo_net::AddressFamily>(SIG_NetworkChanged, [&](zo_net::AddressFamily family) {
    told.push_back(std::to_string(family));
  });
  for (const char* token : {"", "a", "a", ""}) config->SetBusinessToken(token);
  config->SetAddressFamily(zo_net::kAddressFamilyIPv4, false);
  config->SetAddressFamily(zo_net::kAddressFamilyIPv6, true);
  EXPECT_EQ(told, (std::vector<std::string>{"a", "", "2"}));
  EXPECT_EQ(config->address_family(), zo_net::kAddressFamilyIPv6);
}

}  // namespace
}  // namespace zo_tarvel
