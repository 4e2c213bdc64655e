#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "business/tarvel_lbs/host_chooser/host_chooser.h"
#include "business/tarvel_lbs/lbs_request.h"
#include "business/tarvel_lbs/lbs_settings.h"
#include "business/tarvel_lbs/link_address.h"
#include "network/text.h"

namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;
using WQBASE::network::Split;

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

TEST(LinkAddressTest, SplitsAText) {
  const std::pair<const char*, const char*> rows[] = {// Host, port, family.
                                                      {"1.2.3.4:65535", "1.2.3.4 65535 1"},
                                                      {"[2001:db8::1]:2", "[2001:db8::1] 2 2"},
                                                      {"name", "name 0 0"},
                                                      {"name:65536", "name 0 0"},
                                                      {"name:-1", "name 0 0"},
                                                      {"name:99999999999999999999", "name 0 0"},
                                                      {"[::1", "[::1 0 0"},
                                                      {"", " 0 0"}};
  for (const auto& [text, parts] : rows) {
    const auto [host, port, family] = SplitLinkAddress(text);
    EXPECT_EQ(host + " " + std::to_string(port) + " " + std::to_string(family), parts) << text;
  }
}

// What `chooser` answers to questions of these families, each a digit; a "*" marks a default.
std::string Asked(HostChooser& chooser, const std::string& families) {
  std::string answers;
  for (const char family : families) {
    std::string host = "untouched";
    const bool is_default = chooser.GetHost(family - '0', host);
    answers += (answers.empty() ? "" : " ") + std::string(is_default ? "*" : "") + host;
  }
  return answers;
}

TEST(HostChooserTest, HandsOutItsListThenADefaultThenItsListAnew) {
  constexpr char kMixed[] = "1.2.3.4:1 [2001:db8::1]:2 name:3";
  const struct {
    const char* hosts;
    const char* families;
    const char* answers;
    const char* defaults = "d4:4 d6:6";
  } rows[] = {
      {"a:1 b:2", "0000", "a:1 b:2 *d4:4 a:1"},
      {kMixed, "2222", "[2001:db8::1]:2 name:3 *d6:6 [2001:db8::1]:2"},
      {kMixed, "1111", "1.2.3.4:1 name:3 *d4:4 1.2.3.4:1"},
      {kMixed, "03030", "1.2.3.4:1 [2001:db8::1]:2 name:3 *d4:4 1.2.3.4:1"},
      {kMixed, "211", "[2001:db8::1]:2 name:3 *d4:4"},  // One index for all families.
      {"1.2.3.4:1 127.1:2", "221", "*d6:6 *d6:6 1.2.3.4:1"},
      {"1.2.3.4 [ :80", "222", "[ :80 *d6:6"},
      {"", "1201", "*d4:4 *d6:6 *d4:4 *d4:4"},
      // A default that is a name suits any family.
      {"", "031", "*n:80 *n:80 *1.2.3.4:80", "1.2.3.4:80 n:80"},
      {"", "02", "*n:80 *[::1]:80", "n:80 [::1]:80"},
      {"", "0", "*1.2.3.4:80", "1.2.3.4:80 [::1]:80"},
  };
  for (const auto& row : rows) {
    const auto defaults = Split(row.defaults, " ");
    HostChooser chooser(defaults[0], defaults[1], 1);
    chooser.ResetHosts(Split(row.hosts, " "));
    EXPECT_EQ(Asked(chooser, row.families), row.answers)
        << row.hosts << " | " << row.defaults << " asked for " << row.families;
  }
}

TEST(HostChooserTest, TakesADefaultForOneFamilyOrForBoth) {
  const char* const expected[] = {"*x:1 *x:1", "*x:1 *d6:6", "*d4:4 *x:1", "*d4:4 *d6:6"};
  for (const std::int32_t family : {0, 1, 2, 3}) {
    HostChooser chooser("d4:4", "d6:6", -1);
    chooser.SetDefaultHost(family, "x:1");
    EXPECT_EQ(Asked(chooser, "12"), expected[family]) << "set for family " << family;
  }
}

}  // namespace
}  // namespace zo_tarvel
