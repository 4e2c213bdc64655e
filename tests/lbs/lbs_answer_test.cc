#include "business/tarvel_lbs/lbs_answer.h"

#include <gmock/gmock.h>
#include <tarvel/tarvel.h>

#include <map>
#include <string>
#include <vector>

#include "base/json11.h"
#include "business/tarvel_lbs/host_chooser/host_chooser.h"
#include "business/tarvel_lbs/link_address.h"
#include "business/tarvel_lbs/msg_stat_info.h"

namespace zo_tarvel {
namespace {

using testing::ElementsAre;
using Texts = std::vector<std::string>;
using zo_base::json11::Json;

constexpr char kNoParse[] = "json parse error";
constexpr char kNoCommon[] = "json common not find or not object";
constexpr char kNoLink[] = "json common link error";
constexpr char kNoDefaultLink[] = "json common default link error";
constexpr char kNoUrl[] = "json common lbs url error";

std::string Common(const std::string& members) { return "{\"common\": {" + members + "}}"; }

// What CheckLBSAnswer says of a text.
std::string ErrorOf(const std::string& text) {
  std::string error = "ok";
  const bool good = CheckLBSAnswer(text, error);
  EXPECT_EQ(good, error == "ok");
  return error;
}

struct CheckCase {
  std::string text;
  const char* error;
};

TEST(LBSAnswerTest, IsCheckedInOrder) {
  const std::string link = R"("link": ["a:1"], )", default_link = R"("link.default": ["b:2"], )",
                    lbs = R"("lbs": "u")";
  for (const CheckCase& row : std::vector<CheckCase>{
           {"", kNoParse},
           {"null", kNoParse},
           {"{", kNoParse},
           {Common(link + default_link + lbs) + "x", kNoParse},
           {"/**/" + Common(link + default_link + lbs), kNoParse},
           {std::string(100'000, '['), kNoParse},
           {"{}", kNoCommon},
           {"[]", kNoCommon},
           {"7", kNoCommon},
           {R"([{"common": {}}])", kNoCommon},
           {R"({"common": []})", kNoCommon},
           {R"({"common": null})", kNoCommon},
           {Common(""), kNoLink},
           {Common(default_link + lbs), kNoLink},
           {Common(R"("link": "a:1", )" + default_link + lbs), kNoLink},
           {Common(R"("link": {"0": "a:1"}, )" + default_link + lbs), kNoLink},
           {Common(R"("link": [], )" + default_link + lbs), kNoLink},
           {Common(R"("link": ["", 1, null, ["a:1"]], )" + default_link + lbs), kNoLink},
           {Common(link + lbs), kNoDefaultLink},
           {Common(link + R"("link.default": "b:2", )" + lbs), kNoDefaultLink},
           {Common(link + R"("link.default": [""], )" + lbs), kNoDefaultLink},
           {Common(link + R"("link.default": ["b:2"])"), kNoUrl},
           {Common(link + default_link + R"("lbs": "")"), kNoUrl},
           {Common(link + default_link + R"("lbs": ["u"])"), kNoUrl},
           {Common(R"("link": [7, "", "a:1"], )" + default_link + lbs), "ok"},
           {Common(link + default_link + lbs), "ok"}}) {
    EXPECT_EQ(ErrorOf(row.text), row.error) << row.text.substr(0, 200);
  }
}

std::string Joined(const Texts& texts) {
  return Json(Json::array(texts.begin(), texts.end())).dump();
}

using Fields = std::map<std::string, std::string>;

// All that an answer says, without what says nothing.
Fields FieldsOf(const LBSAnswer& answer) {
  Fields fields{{"link", Joined(answer.link)},
                {"default", Joined(answer.default_link)},
                {"lbs", answer.lbs},
                {"backup", Joined(answer.lbs_backup)},
                {"zeb_dl", answer.zeb_dl},
                {"zeb_dl_list", answer.zeb_dl_list},
                {"zeb_list", answer.zeb_list},
                {"name", answer.name},
                {"desc", answer.desc},
                {"ttl", std::to_string(answer.ttl)},
                {"report", std::to_string(answer.report.on) + " " + answer.report.host + " " +
                               std::to_string(answer.report.count) + " " +
                               std::to_string(answer.report.time) + " " +
                               std::to_string(answer.report.min_delay)}};
  if (answer.msg_stat_enable) fields["stat"] = *answer.msg_stat_enable ? "on" : "off";
  std::erase_if(fields,
                [](const auto& field) { return field.second.empty() || field.second == "[]"; });
  return fields;
}

const Fields kNothingSaid{{"ttl", "43200"},
                          {"report", "1 https://statistics.tarvel.invalid 10 60000 10000"}};

struct ReadCase {
  const char* members;  // Of "common".
  Fields fields;        // Those that differ from what an empty "common" gives.
};

TEST(LBSAnswerTest, SaysWhatItsMembersSay) {
  const std::string host = kDefaultStatisticsHost, local = kGeneratedLocally;
  for (
      const ReadCase& row : std::vector<ReadCase>{
          {"", {}},
          {R"("link": ["a:1", ""], "link.default": ["", "b:2", 5], "lbs.backup": ["v", 1])",
           {{"link", R"(["a:1"])"}, {"default", R"(["b:2"])"}, {"backup", R"(["v", ""])"}}},
          {R"("lbs": "u", "zebdl": "d", "zebdls": ["d", {"k": 1}], "zeb": "z", "name": "n", "desc": "e")",
           {{"lbs", "u"},
            {"zeb_dl", "d"},
            {"zeb_dl_list", R"(["d", {"k": 1}])"},
            {"zeb_list", R"("z")"},
            {"name", "n"},
            {"desc", "e"}}},
          // Wrong types.
          {R"("link": "a:1", "link.default": {"b": 2}, "lbs": 1, "lbs.backup": "v", "zebdl": [])",
           {}},
          {R"("name": {}, "desc": null, "ttl": "60", "report": [])", {}},
          {R"("msg.stat.enable": true)", {{"stat", "on"}}},
          {R"("msg.stat.enable": false)", {{"stat", "off"}}},
          {R"("msg.stat.enable": "true")", {{"stat", "off"}}},
          // Ten characters are a double, which has no 64-bit value.
          {R"("ttl": 60)", {{"ttl", "60"}}},
          {R"("ttl": 0)", {}},
          {R"("ttl": -1)", {{"ttl", "-1"}}},
          {R"("ttl": 999999999)", {{"ttl", "999999999"}}},
          {R"("ttl": 1000000000)", {}},
          {R"("ttl": -100000000)", {}},
          {R"("ttl": 60.5)", {}},
          {R"("desc": "generated locally")", {{"desc", local}, {"ttl", "0"}}},
          {R"("desc": "generated locally", "ttl": 5)", {{"desc", local}, {"ttl", "5"}}},
          {R"("desc": "generated locally ")", {{"desc", local + " "}}},
          {R"("report": {"host": "http://s", "apierror": {"on": false, "threshold":
               {"count": 3, "time": 4, "min_delay": 5}}})",
           {{"report", "0 http://s 3 4 5000"}}},
          {R"("report": {"host": "s:443"})", {{"report", "1 https://s:443 10 60000 10000"}}},
          {R"("report": {"apierror": {"threshold": {"time": 4}}})",
           {{"report", "1 " + host + " 10 4 10000"}}},
          {R"("report": {"host": 1, "apierror": {"on": 1, "threshold":
               {"count": "3", "time": [], "min_delay": null}}})",
           {{"report", "0 " + host + " 0 0 0"}}},
          {R"("report": {"apierror": {"threshold": {"min_delay": 2147483647}}})",
           {{"report", "1 " + host + " 10 60000 2147483647000"}}}}) {
    Fields expected = row.fields;
    expected.insert(kNothingSaid.begin(), kNothingSaid.end());
    const auto answer = ReadLBSAnswer(Common(row.members));
    ASSERT_TRUE(answer) << row.members;
    EXPECT_EQ(FieldsOf(*answer), expected) << row.members;
  }
}

TEST(LBSAnswerTest, NeedsACommonOfAnyType) {
  for (const char* text : {"", "null", "{}", "[]", "{\"Common\": {}}", "[\"common\"]"}) {
    EXPECT_FALSE(ReadLBSAnswer(text)) << text;
  }
  for (const char* text : {"{\"common\": null}", "{\"common\": [1]}", "{\"common\": 7}"}) {
    const auto answer = ReadLBSAnswer(text);
    ASSERT_TRUE(answer) << text;
    EXPECT_EQ(FieldsOf(*answer), kNothingSaid) << text;
  }
}

TEST(LBSAnswerTest, LeavesOutHostsThatAreTooLong) {
  const std::string longest = std::string(255, 'h') + ":80", too_long = 'h' + longest;
  const auto with_links = [](const std::string& link, const std::string& default_link) {
    return Common("\"link\": [\"" + link + "\"], \"link.default\": [\"" + default_link +
                  "\"], \"lbs\": \"u\"");
  };
  EXPECT_EQ(ErrorOf(with_links(too_long, longest)), kNoLink);
  EXPECT_EQ(ErrorOf(with_links(longest, too_long)), kNoDefaultLink);
  EXPECT_EQ(ErrorOf(with_links(longest, longest)), "ok");
  EXPECT_THAT(ReadLBSAnswer(with_links(too_long + "\", \"" + longest, too_long))->link,
              ElementsAre(longest));
}

TEST(LBSAnswerTest, LeavesOutJsonTextsThatAreTooLong) {
  const std::string longest(kLBSTextBufferSize - 3, 'x');  // And two quotes, and the zero.
  const auto zeb_list = [](const std::string& zeb) {
    return ReadLBSAnswer(Common("\"zeb\": " + zeb))->zeb_list;
  };
  EXPECT_EQ(zeb_list('"' + longest + '"').size(), kLBSTextBufferSize - 1);
  EXPECT_EQ(zeb_list('"' + longest + "x\""), "");
  std::string grows = "[0.1";  // A number of 19 characters as it is written out.
  while (grows.size() < 2'000'000) grows += ",0.1";
  EXPECT_EQ(zeb_list(grows + "]"), "");
}

TEST(LBSAnswerTest, LeavesOutWhatCouldNotBeSavedAndBackupsBeyondReason) {
  std::string backups = "\"\xff\"";
  for (int i = 0; i < 100; ++i) backups += R"(,"http://b")";
  const auto answer = ReadLBSAnswer(
      "{\"common\": {\"name\": \"a\xc3\", \"zeb\": [\"\xed\xa0\x80\"], "
      "\"desc\": \"\xf0\x9f\x99\x82\", \"lbs.backup\": [" +
      backups + "]}}");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->name, "");
  EXPECT_EQ(answer->zeb_list, "");
  EXPECT_EQ(answer->desc, "\xf0\x9f\x99\x82");
  ASSERT_EQ(answer->lbs_backup.size(), kMostBackupLBS);
  EXPECT_EQ(answer->lbs_backup.front(), "");
  EXPECT_EQ(answer->lbs_backup.back(), "http://b");
}

TEST(LBSAnswerTest, TakesLinearTimeForManyLinks) {
  constexpr int kLinks = 100'000;
  std::string links = "\"1.2.3.4:0\"";
  for (int i = 1; i < kLinks; ++i) links += ",\"1.2.3.4:" + std::to_string(i) + '"';
  const std::string text =
      Common("\"link\": [" + links + "], \"link.default\": [\"b:2\"], \"lbs\": \"u\"");
  EXPECT_EQ(ErrorOf(text), "ok");
  HostChooser chooser("d4:4", "d6:6", -1);
  chooser.ResetHosts(ReadLBSAnswer(text)->link);
  std::string host;
  for (int i = 0; i < kLinks; ++i) ASSERT_FALSE(chooser.GetHost(kEMAddressFamilyIPv4, host)) << i;
  EXPECT_EQ(host, "1.2.3.4:99999");
  EXPECT_TRUE(chooser.GetHost(kEMAddressFamilyIPv4, host));
  EXPECT_TRUE(chooser.GetHost(kEMAddressFamilyIPv6, host));
  EXPECT_EQ(host, "d6:6");
}

struct SplitCase {
  const char* text;
  const char* host;
  std::int32_t port;
  EMAddressFamily family;
};

TEST(LinkAddressTest, SplitsAText) {
  for (const SplitCase& row :
       std::vector<SplitCase>{{"name:80", "name", 80, kEMAddressFamilyAny},
                              {"1.2.3.4:65535", "1.2.3.4", 65'535, kEMAddressFamilyIPv4},
                              {"[2001:db8::1]:2", "[2001:db8::1]", 2, kEMAddressFamilyIPv6},
                              {"[2001:db8::1]", "[2001:db8::1]", 0, kEMAddressFamilyIPv6},
                              {"name", "name", 0, kEMAddressFamilyAny},
                              {"name:65536", "name", 0, kEMAddressFamilyAny},
                              {"name:-1", "name", 0, kEMAddressFamilyAny},
                              {"name:99999999999999999999", "name", 0, kEMAddressFamilyAny},
                              {"name:x", "name", 0, kEMAddressFamilyAny},
                              {"[::1", "[::1", 0, kEMAddressFamilyAny},
                              {":80", "", 80, kEMAddressFamilyAny},
                              {"", "", 0, kEMAddressFamilyAny}}) {
    const LinkAddress address = SplitLinkAddress(row.text);
    EXPECT_EQ(address.host, row.host) << row.text;
    EXPECT_EQ(address.port, row.port) << row.text;
    EXPECT_EQ(address.family, row.family) << row.text;
    EXPECT_EQ(FamilyOfLinkAddress(row.text), row.family) << row.text;
  }
}

TEST(MsgStatInfoTest, IsKeptAsOneJsonText) {
  MsgStatInfo info;
  EXPECT_EQ(info.ToJson(), R"({"msg_stat_info": {"desc": "online", )"
                           R"("msg_stat_info_api": "/statics/report/im/sdk/msgreceived", )"
                           R"("msg_stat_info_enable": "false", )"
                           R"("msg_stat_info_host": "https://statistics.tarvel.invalid"}})");
  const MsgStatInfo written{true, std::string(600, 'h'), "a", std::string(128, 'd')};
  info.FromJson(written.ToJson());
  EXPECT_EQ(info.ToJson(), written.ToJson());
  for (const char* text :
       {"", "[]", R"({"msg_stat_info": {"desc": 1, "msg_stat_info_api": null}})"}) {
    info.FromJson(text);
    EXPECT_EQ(info.ToJson(), written.ToJson()) << text;
  }
  info.FromJson(R"({"msg_stat_info": {"msg_stat_info_enable": "1"}})");
  EXPECT_FALSE(info.enable);

  _ZOTarvelMsgStatInfo record;
  written.FillRecord(record);
  EXPECT_TRUE(record.enable);
  EXPECT_EQ(std::string(record.host), std::string(511, 'h'));
  EXPECT_EQ(std::string(record.api), "a");
  EXPECT_EQ(std::string(record.desc), std::string(127, 'd'));
}

}  // namespace
}  // namespace zo_tarvel
