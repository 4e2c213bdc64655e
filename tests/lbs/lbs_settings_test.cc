#include "business/tarvel_lbs/lbs_settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;

struct AddressCase {
  std::uint32_t family;
  const char* link;
  const char* link_ipv6;
  std::int32_t used_family;
  Texts used;  // The two defaults, then the list.
};

TEST(LBSSettingsTest, FillTheGapsOfARecord) {
  const std::string none = kDefaultLink;
  for (const AddressCase& row :
       std::vector<AddressCase>{{1, "l:1", "s:2", 1, {"l:1", "s:2", "l:1"}},
                                {2, "l:1", "s:2", 2, {"l:1", "s:2", "s:2"}},
                                {0, "l:1", "s:2", 0, {"l:1", "s:2", "l:1", "s:2"}},
                                {3, "l:1", "s:2", 1, {"l:1", "s:2", "l:1"}},
                                {0xffffffff, "l:1", "s:2", 1, {"l:1", "s:2", "l:1"}},
                                {2, "l:1", "", 2, {"l:1", "l:1", "l:1"}},
                                {0, "", "s:2", 0, {none, "s:2", none, "s:2"}},
                                {0, "", "", 0, {none, none, none, none}}}) {
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
    EXPECT_EQ(settings.sreq_timeout_ms, 7'000);
    EXPECT_EQ(settings.sreq_pred_fail_time_ms, 2'000);
  }
}

struct TimeoutCase {
  std::int32_t timeout, pred_fail_time;
  std::int32_t used_timeout, used_pred_fail_time;
};

TEST(LBSSettingsTest, CleanTheTimeoutsOrTakeThoseOfTheEnvironment) {
  _ZOTarvelEnvironmentSettings of_environment;
  of_environment.single_request_timeout = 3'000;
  of_environment.single_request_prefail_timeout = 300;
  const auto environment = std::make_shared<_EnvironmentConfig>();
  environment->Load(of_environment);
  for (const TimeoutCase& row :
       {TimeoutCase{500, 100, 1'000, 200}, TimeoutCase{1, -5, 1'000, 200},
        TimeoutCase{40'000, 50'000, 30'000, 29'920}, TimeoutCase{1'000, 1'000, 1'000, 920},
        TimeoutCase{1'000, 999, 1'000, 999}, TimeoutCase{5'000, 199, 5'000, 200},
        TimeoutCase{INT32_MAX, INT32_MAX, 30'000, 29'920}, TimeoutCase{0, 500, 3'000, 300},
        TimeoutCase{-1, 500, 3'000, 300}}) {
    _ZOTarvelLBSSettings record;
    record.sreq_timeout_ms = row.timeout;
    record.sreq_pred_fail_time_ms = row.pred_fail_time;
    LBSSettings settings;
    settings.Assign(record, environment.get());
    EXPECT_EQ(settings.sreq_timeout_ms, row.used_timeout) << row.timeout;
    EXPECT_EQ(settings.sreq_pred_fail_time_ms, row.used_pred_fail_time) << row.timeout;
  }
}

TEST(LBSSettingsTest, ShowInTheBannerTextsThatFillTheirArrays) {
  _ZOTarvelLBSSettings record;
  record.using_private = true;
  record.sreq_timeout_ms = record.sreq_pred_fail_time_ms = 1'000;
  std::memset(record.lbs_main_addr, 'm', sizeof record.lbs_main_addr);
  std::memset(record.lbs_backup_addrs[1], 'b', 2 * sizeof record.lbs_backup_addrs[1]);
  std::memset(record.default_link, 'd', sizeof record.default_link);
  std::memset(record.default_link_ipv6, 's', sizeof record.default_link_ipv6);
  std::strcpy(record.link_list[0], "first");
  std::memset(record.link_list[4], 'l', sizeof record.link_list[4]);
  std::memset(record.reserved, 'r', sizeof record.reserved);
  std::memset(record.def_lbs_host, 'h', sizeof record.def_lbs_host);
  LBSSettings settings;
  settings.Assign(record, nullptr);
  const std::string m(512, 'm'), b(512, 'b'), d(128, 'd'), s(128, 's'), l(128, 'l'), h(512, 'h');
  EXPECT_EQ(settings.Dump(), "-- using_private:true\n-- lbs_main_addr:" + m +
                                 "\n-- default_link:" + d + "\n-- default_link_ipv6:" + s +
                                 "\n-- addr_family:0\n-- sreq_timeout_ms:1000\n" +
                                 "-- sreq_pred_fail_time_ms:920\n-- def_lbs_host:" + h +
                                 "\n-- lbs_backup_addrs:\n   - " + b + "\r\n   - " + b +
                                 "\r\n-- link_list:\n   - first\r\n   - " + l + "\r\n");
  settings.Assign({}, nullptr);
  EXPECT_EQ(settings.lbs_main_addr, m);  // An empty text keeps the old one.
  EXPECT_EQ(settings.def_lbs_host, "");
}

}  // namespace
}  // namespace zo_tarvel
