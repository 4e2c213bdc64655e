#include "business/tarvel_lbs/lbs_settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;

TEST(LBSSettingsTest, FillTheGapsOfARecord) {
  const std::string none = kDefaultLink;
  const struct {
    std::uint32_t family;
    const char* link;
    const char* link_ipv6;
    std::int32_t used_family;
    Texts used;  // The two defaults, then the list.
  } rows[] = {{1, "l:1", "s:2", 1, {"l:1", "s:2", "l:1"}},
              {2, "l:1", "s:2", 2, {"l:1", "s:2", "s:2"}},
              {0, "l:1", "s:2", 0, {"l:1", "s:2", "l:1", "s:2"}},
              {0xffffffff, "l:1", "s:2", 1, {"l:1", "s:2", "l:1"}},
              {2, "l:1", "", 2, {"l:1", "l:1", "l:1"}},
              {0, "", "s:2", 0, {none, "s:2", none, "s:2"}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.used) + " of " + std::to_string(row.family));
    _ZOTarvelLBSSettings record;
    record.addr_family = row.family;
    std::strcpy(record.default_link, row.link);
    std::strcpy(record.default_link_ipv6, row.link_ipv6);
    LBSSettings settings;
    settings.link_list = settings.lbs_backup_addrs = {"of an earlier record"};
    settings.Assign(record, nullptr);
    Texts used{settings.default_link, settings.default_link_ipv6};
    used.insert(used.end(), settings.link_list.begin(), settings.link_list.end());
    EXPECT_EQ(used, row.used);
    EXPECT_EQ(settings.addr_family, row.used_family);
    EXPECT_EQ(settings.lbs_backup_addrs, Texts());
    EXPECT_EQ(settings.lbs_main_addr, kDefaultLBSUrl);
  }
}

TEST(LBSSettingsTest, CleanTheTimeoutsOrTakeThoseOfTheEnvironment) {
  _ZOTarvelEnvironmentSettings of_environment;
  of_environment.single_request_timeout = 3'000;
  of_environment.single_request_prefail_timeout = 300;
  const auto environment = std::make_shared<_EnvironmentConfig>();
  environment->Load(of_environment);
  for (const auto& [timeout, used_timeout, used_pred_fail_time] :
       {std::tuple{1, 1'000, 920}, {INT32_MAX, 30'000, 5'000}, {0, 3'000, 300}, {-1, 3'000, 300}}) {
    _ZOTarvelLBSSettings record;
    record.sreq_timeout_ms = timeout;
    record.sreq_pred_fail_time_ms = 5'000;
    LBSSettings settings;
    settings.Assign(record, environment.get());
    EXPECT_EQ(settings.sreq_timeout_ms, used_timeout) << timeout;
    EXPECT_EQ(settings.sreq_pred_fail_time_ms, used_pred_fail_time) << timeout;
  }
}

}  // namespace
}  // namespace zo_tarvel
