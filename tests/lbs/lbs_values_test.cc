#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "business/tarvel_lbs/lbs_request.h"
#include "business/tarvel_lbs/lbs_settings.h"

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
  for (const std::int32_t timeout : {1, 0, -1}) {
    _ZOTarvelLBSSettings record;
    record.sreq_timeout_ms = timeout;
    record.sreq_pred_fail_time_ms = 5'000;
    LBSSettings settings;
    settings.Assign(record, environment.get());
    EXPECT_EQ(settings.sreq_timeout_ms, timeout == 1 ? 1'000 : 3'000) << timeout;
    EXPECT_EQ(settings.sreq_pred_fail_time_ms, timeout == 1 ? 920 : 300) << timeout;
  }
}

TEST(LBSRequestTest, AsksTheUrlsThatFitTheFamilyAndTheScheme) {
  const Texts literals{"https://1.2.3.4/4", "https://[::1]/6", "https://n/"};
  const std::string v4 = "def.host https://1.2.3.4/4?q", v6 = "def.host https://[::1]/6?q",
                    name = "n https://n/?q";
  const struct {
    Texts urls;
    std::int32_t family;
    bool only_https;
    Texts entries;  // "<host> <url>".
  } rows[] = {
      {{}, 0, false, {}},
      {{"http://a/p", "https://a:1/p?x=y"}, 0, false, {"a http://a/p?q", "a https://a:1/p?x=y&q"}},
      {{"ftp://a/", "a/p", "", "a:80", "HTTP://a/"}, 0, false, {"a HTTP://a/?q"}},
      {literals, 0, false, {v4, v6, name}},
      {literals, 1, false, {v4, name}},
      {literals, 2, false, {v6, name}},
      // The first URL alone names the host of literals, whether it is asked or not.
      {{"http://a:80/", "https://1.2.3.4/"}, 0, true, {"a https://1.2.3.4/?q"}},
      {{"ftp://a/", "http://1.2.3.4/"}, 0, false, {"def.host http://1.2.3.4/?q"}},
      // Over https only: what has a port of its own would speak another protocol there.
      {{"http://a/p", "http://a:80/p", "http://[::1]:1/"}, 0, true, {"a https://a/p?q"}},
      {{"https://a:80/p", "HTTP://a/p", "http://a/?u=http://b/"},
       0,
       true,
       {"a https://a:80/p?q", "a https://a/?u=https://b/&q"}},
  };
  for (const auto& row : rows) {
    Texts entries;
    for (const UrlEntry& entry :
         MakeLBSUrlEntries({row.urls, "def.host", row.family, row.only_https}, "q")) {
      entries.push_back(entry.host + " " + entry.url);
    }
    EXPECT_EQ(entries, row.entries) << testing::PrintToString(row.urls);
  }
}

}  // namespace
}  // namespace zo_tarvel
