#include <gtest/gtest.h>

#include <map>

#include "base/json/json11.h"
#include "base/text/strings.h"
#include "business/tarvel_lbs/active_answer.h"
#include "business/tarvel_lbs/update_request.h"
#include "tests/support/agent_environment.h"

// The values of the LBS service: settings, requests, answers and link addresses.
namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;
using zo_base::Split;
using zo_base::json11::ToJson;

Texts TextsOf(const std::vector<LinkAddress>& addresses) {
  Texts texts;
  for (const LinkAddress& address : addresses) texts.push_back(address.text);
  return texts;
}

std::vector<LinkAddress> AddressesIn(const char* texts) {
  std::vector<LinkAddress> addresses;
  for (const std::string& text : Split(texts, " ")) addresses.push_back(SplitLinkAddress(text));
  return addresses;
}

std::string Common(const std::string& members) { return "{\"common\": {" + members + "}}"; }

// An answer with these members. They are JSON texts.
std::string AnswerWith(const std::string& link, const std::string& default_link,
                       const std::string& lbs = "\"u\"") {
  return Common("\"link\": " + link + ", \"link.default\": " + default_link + ", \"lbs\": " + lbs);
}

TEST(LBSAnswerTest, IsCheckedInOrder) {
  const std::string a = R"(["a:1"])", good = AnswerWith(a, a);
  const std::string longest = std::string(255, 'h') + ":80";
  const std::string fits = "[\"" + longest + "\"]", too_long = "[\"h" + longest + "\"]";
  const struct {
    std::string text;
    const char* error;
  } rows[] = {
      {"", "json parse error"},
      {"null", "json parse error"},
      {good + "x", "json parse error"},
      {"/**/" + good, "json parse error"},
      {std::string(100'000, '['), "json parse error"},
      {"{}", "json common not find or not object"},
      {R"({"common": []})", "json common not find or not object"},
      {Common(""), "json common link error"},
      {AnswerWith(R"(["", 1, null, ["a:1"]])", a), "json common link error"},
      {AnswerWith(too_long, fits), "json common link error"},
      {AnswerWith(a, R"([""])"), "json common default link error"},
      {AnswerWith(fits, too_long), "json common default link error"},
      {AnswerWith(a, a, R"(["u"])"), "json common lbs url error"},
      {AnswerWith(a, a, "\"\xc3\""), "json common lbs url error"},  // It could never be saved.
      {AnswerWith(R"([7, "", "a:1"])", a), ""},
      {AnswerWith(fits, fits), ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ParseLBSAnswer(row.text).error, row.error) << row.text.substr(0, 200);
  }
}

using Fields = std::map<std::string, std::string>;

// The fields of an answer that aren't empty.
Fields FieldsOf(const LBSAnswer& answer) {
  const auto& [on, host, count, time, min_delay] = answer.report;
  Fields fields{{"link", ToJson(TextsOf(answer.link)).dump()},
                {"default", ToJson(TextsOf(answer.default_link)).dump()},
                {"lbs", answer.lbs},
                {"backup", ToJson(answer.lbs_backup).dump()},
                {"zeb_dl", answer.zeb_dl},
                {"zeb_dl_list", answer.zeb_dl_list},
                {"zeb_list", answer.zeb_list},
                {"name", answer.name},
                {"desc", answer.desc},
                {"ttl", std::to_string(answer.ttl)}};
  fields["report"] = (on ? "on " : "off ") + host + " " + std::to_string(count) + " " +
                     std::to_string(time) + " " + std::to_string(min_delay);
  if (answer.msg_stat_enable) fields["stat"] = *answer.msg_stat_enable ? "on" : "off";
  std::erase_if(fields, [](const auto& f) { return f.second.empty() || f.second == "[]"; });
  return fields;
}

TEST(LBSAnswerTest, SaysWhatItsMembersSay) {
  const std::string host = kDefaultStatisticsHost, local = kGeneratedLocally;
  const std::string fits(kLBSTextBufferSize - 3, 'x');  // Plus two quotes and the zero.
  std::string grows = "[0.1";  // Written out, the number has 19 characters.
  while (grows.size() < 2'000'000) grows += ",0.1";
  const struct {
    std::string members;  // Of "common".
    Fields fields;        // That differ from those of an empty "common".
  } rows[] = {
      {"", {}},
      {R"("link": ["a:1", ""], "link.default": ["", "b:2", 5], "lbs.backup": ["v", 1])",
       {{"link", R"(["a:1"])"}, {"default", R"(["b:2"])"}, {"backup", R"(["v", ""])"}}},
      {R"("lbs": "u", "zebdl": "d", "name": "n")", {{"lbs", "u"}, {"zeb_dl", "d"}, {"name", "n"}}},
      {R"("zebdls": [{"k": 1}], "zeb": "z")",
       {{"zeb_dl_list", R"([{"k": 1}])"}, {"zeb_list", "\"z\""}}},
      // Wrong types, invalid UTF-8, texts too long for the client's buffer.
      {R"("link": "a:1", "link.default": {"b": 2}, "lbs": 1, "lbs.backup": "v", "zebdl": [])", {}},
      {R"("name": {}, "desc": null, "ttl": "60", "report": [])", {}},
      {"\"name\": \"a\xc3\", \"zeb\": [\"\xed\xa0\x80\"], \"desc\": \"\xf0\x9f\x99\x82\"",
       {{"desc", "\xf0\x9f\x99\x82"}}},
      {"\"zeb\": \"" + fits + '"', {{"zeb_list", '"' + fits + '"'}}},
      {"\"zeb\": \"x" + fits + '"', {}},
      {"\"zeb\": " + grows + "]", {}},
      {R"("msg.stat.enable": true)", {{"stat", "on"}}},
      {R"("msg.stat.enable": "true")", {{"stat", "off"}}},
      // A number of ten characters is a double, which reads as 0.
      {R"("ttl": 999999999)", {{"ttl", "999999999"}}},
      {R"("ttl": 1000000000)", {}},
      {R"("ttl": 0)", {}},
      {R"("ttl": -1)", {{"ttl", "-1"}}},
      {R"("desc": "generated locally")", {{"desc", local}, {"ttl", "0"}}},
      {R"("desc": "generated locally", "ttl": 5)", {{"desc", local}, {"ttl", "5"}}},
      {R"("report": {"host": "http://s", "apierror": {"on": false, "threshold":
          {"count": 3, "time": 4, "min_delay": 2147483647}}})",
       {{"report", "off http://s 3 4 2147483647000"}}},
      {R"("report": {"host": "s:443", "apierror": {"threshold": {"time": 4}}})",
       {{"report", "on https://s:443 10 4 10000"}}},
      {R"("report": {"host": 1, "apierror": {"on": 1, "threshold": {"count": "3", "time": []}}})",
       {{"report", "off " + host + " 0 0 10000"}}},
  };
  for (const auto& row : rows) {
    Fields expected = row.fields;
    expected.insert({{"ttl", "43200"}, {"report", "on " + host + " 10 60000 10000"}});
    const auto answer = ParseLBSAnswer(Common(row.members)).answer;
    ASSERT_TRUE(answer) << row.members.substr(0, 200);
    EXPECT_TRUE(FieldsOf(*answer) == expected)
        << row.members.substr(0, 200) << " gives "
        << testing::PrintToString(FieldsOf(*answer)).substr(0, 1'000);
  }
  for (const char* text : {"", "null", "{\"Common\": {}}", "[\"common\"]"}) {
    EXPECT_FALSE(ParseLBSAnswer(text).answer) << text;
  }
}

TEST(LBSAnswerTest, KeepsAndLogsOnlySoManyLinks) {
  constexpr int kLinks = 10'000;
  std::string links = "[\"\",\"1.2.3.4:0\"";
  for (int i = 1; i <= kLinks; ++i) links += ",\"1.2.3.4:" + std::to_string(i) + '"';
  const auto answer = ParseLBSAnswer(Common("\"link\": " + links + "], \"link.default\": " + links +
                                            "], \"lbs.backup\": " + links + "]"))
                          .answer;
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->lbs_backup.size(), kMostBackupLBS);
  EXPECT_EQ(answer->link.size() + answer->default_link.size(), 2U * kLinks);
  HostChooser chooser("d4:4", "d6:6", -1);
  {
    const test_support::CapturedLog log;
    chooser.ResetHosts(answer->link);
    EXPECT_LT(test_support::RecordedLog::Texts().at(0).size(), 10'000U);
  }
  std::string host;
  for (int i = 0; i < kLinks; ++i) ASSERT_FALSE(chooser.GetHost(kEMAddressFamilyIPv4, host)) << i;
  EXPECT_EQ(host, "1.2.3.4:9999");
  EXPECT_TRUE(chooser.GetHost(kEMAddressFamilyIPv4, host));
  EXPECT_TRUE(chooser.GetHost(kEMAddressFamilyIPv6, host));
}

TEST(MsgStatInfoTest, IsCutForTheClient) {
  _ZOTarvelMsgStatInfo record;
  MsgStatInfo{true, std::string(600, 'h'), "a", std::string(128, 'd')}.FillRecord(record);
  EXPECT_EQ(std::string(record.host), std::string(511, 'h'));
  EXPECT_EQ(std::string(record.api), "a");
  EXPECT_EQ(std::string(record.desc), std::string(127, 'd'));
}

TEST(LBSSettingsTest, CleanTheTimeoutsOrTakeThoseOfTheEnvironment) {
  _ZOTarvelEnvironmentSettings of_environment;
  of_environment.single_request_timeout = 3'000;
  of_environment.single_request_prefail_timeout = 2'000;
  const auto environment = std::make_shared<_EnvironmentConfig>();
  environment->Load(of_environment);
  for (const std::int32_t timeout : {1, 0, -1}) {
    _ZOTarvelLBSSettings record;
    record.sreq_timeout_ms = timeout;
    record.sreq_pred_fail_time_ms = 300;
    LBSSettings settings;
    settings.Assign(record, environment.get());
    EXPECT_EQ(settings.sreq_timeout_ms, timeout == 1 ? 1'000 : 3'000) << timeout;
    EXPECT_EQ(settings.sreq_pred_fail_time_ms, timeout == 1 ? 300 : 2'000) << timeout;
  }
}

TEST(UpdateRequestTest, AsksTheUrlsThatFitFamilyAndScheme) {
  const Texts literals{"https://1.2.3.4/4", "https://[::1]/6", "https://n/"};
  const std::string v4 = "def.host https://1.2.3.4/4?", v6 = "def.host https://[::1]/6?",
                    name = "n https://n/?", main = "main https://main/?";
  const struct {
    Texts urls;
    std::int32_t family;
    bool only_https;
    Texts entries;  // "<host> <url>".
  } rows[] = {
      {{""}, 0, false, {main}},  // No other URL can be asked.
      {{"mailto:a"}, 0, false, {main}},
      {{"http://[::1]/"}, 1, false, {main}},
      {{"http://a/p", "https://a:1/p?x=y"}, 0, false, {"a http://a/p?", "a https://a:1/p?x=y&"}},
      {{"ftp://a/", "a/p", "", "a:80", "HTTP://a/"}, 0, false, {"a HTTP://a/?"}},
      {{"https://bad%20host/", "http://a:99999/", "http://[::1/", literals[0]}, 0, false, {v4}},
      {literals, 0, false, {v4, v6, name}},
      {literals, 1, false, {v4, name}},
      {literals, 2, false, {v6, name}},
      // The first URL names the host of literals, even if it isn't asked.
      {{"http://a:80/", "https://1.2.3.4/"}, 0, true, {"a https://1.2.3.4/?"}},
      {{"ftp://a/", "http://1.2.3.4/"}, 0, false, {"def.host http://1.2.3.4/?"}},
      // Over https only: a port of an http URL speaks another protocol.
      {{"http://a/p", "http://a:80/p", "http://[::1]:1/"}, 0, true, {"a https://a/p?"}},
      {{"https://a:80/p", "HTTP://a/p", "http://a/?u=http://b/"},
       0,
       true,
       {"a https://a:80/p?", "a https://a/?u=https://b/&"}},
  };
  for (const auto& row : rows) {
    _ZOTarvelEnvironmentSettings of_environment;
    of_environment.only_https_supported = row.only_https ? 1 : 0;
    const auto config = std::make_shared<_EnvironmentConfig>();
    config->Load(of_environment);
    LBSSettings settings;
    settings.def_lbs_host = "def.host";
    settings.lbs_main_addr = "https://main/";
    const UpdateRequest update(static_cast<zo_net::AddressFamily>(row.family), "");
    Texts entries;
    for (const UrlEntry& entry : update.ToHttpRequest(row.urls, "", settings, *config).urls) {
      entries.push_back(entry.host + " " +
                        entry.url.text().substr(0, entry.url.text().find("sv=")));
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
                                                      {"name:99999999999999999999", "name 0 0"},
                                                      {"[::1", "[::1 0 0"},
                                                      {"", " 0 0"}};
  for (const auto& [text, parts] : rows) {
    const auto [whole, host, port, family] = SplitLinkAddress(text);
    EXPECT_EQ(whole, text);
    EXPECT_EQ(host + " " + std::to_string(port) + " " + std::to_string(family), parts) << text;
  }
}

// What `chooser` returns for these families, each a digit. A "*" marks a default.
std::string Asked(HostChooser& chooser, const std::string& families) {
  std::string answers;
  for (const char family : families) {
    std::string host = "untouched";
    const bool is_default = chooser.GetHost(family - '0', host);
    answers += (answers.empty() ? "" : " ") + std::string(is_default ? "*" : "") + host;
  }
  return answers;
}

TEST(HostChooserTest, HandsOutItsListThenADefault) {
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
    chooser.ResetHosts(AddressesIn(row.hosts));
    EXPECT_EQ(Asked(chooser, row.families), row.answers)
        << row.hosts << " | " << row.defaults << " asked for " << row.families;
  }
}

TEST(HostChooserTest, TakesADefaultForOneFamilyOrForBoth) {
  const char* const expected[] = {"*x:1 *x:1", "*x:1 *d6:6", "*d4:4 *x:1", "*d4:4 *d6:6"};
  for (const std::int32_t family : {0, 1, 2, 3}) {
    HostChooser chooser("d4:4", "d6:6", -1);
    chooser.SetDefaultHost(family, "x:1");
    EXPECT_EQ(Asked(chooser, "12"), expected[family]) << family;
  }
}

}  // namespace
}  // namespace zo_tarvel
