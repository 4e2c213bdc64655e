#include "business/tarvel_lbs/lbs_answer.h"

#include <gtest/gtest.h>
#include <tarvel/tarvel.h>

#include <map>
#include <string>

#include "base/json_texts.h"
#include "business/tarvel_lbs/host_chooser/host_chooser.h"
#include "business/tarvel_lbs/msg_stat_info.h"
#include "tests/lbs/captured_log.h"

namespace zo_tarvel {
namespace {

using zo_base::json11::ToJson;

std::string Common(const std::string& members) { return "{\"common\": {" + members + "}}"; }

// An answer with these members, which are JSON texts.
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
      {R"([{"common": {}}])", "json common not find or not object"},
      {R"({"common": []})", "json common not find or not object"},
      {Common(""), "json common link error"},
      {AnswerWith(R"("a:1")", a), "json common link error"},
      {AnswerWith(R"(["", 1, null, ["a:1"]])", a), "json common link error"},
      {AnswerWith(too_long, fits), "json common link error"},
      {AnswerWith(a, R"([""])"), "json common default link error"},
      {AnswerWith(fits, too_long), "json common default link error"},
      {AnswerWith(a, a, R"(["u"])"), "json common lbs url error"},
      {AnswerWith(a, a, "\"\xc3\""), "json common lbs url error"},  // It could never be saved.
      {AnswerWith(R"([7, "", "a:1"])", a), "none"},
      {AnswerWith(fits, fits), "none"},
  };
  for (const auto& row : rows) {
    std::string error = "none";
    const bool passed = CheckLBSAnswer(row.text, error);
    EXPECT_EQ(error, row.error) << row.text.substr(0, 200);
    EXPECT_EQ(passed, error == "none") << row.text.substr(0, 200);
  }
}

using Fields = std::map<std::string, std::string>;

// All that an answer says, without what says nothing.
Fields FieldsOf(const LBSAnswer& answer) {
  const auto& [on, host, count, time, min_delay] = answer.report;
  Fields fields{{"link", ToJson(answer.link).dump()},
                {"default", ToJson(answer.default_link).dump()},
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
  const std::string fits(kLBSTextBufferSize - 3, 'x');  // And two quotes, and the zero.
  std::string grows = "[0.1";  // A number of 19 characters as it is written out.
  while (grows.size() < 2'000'000) grows += ",0.1";
  const struct {
    std::string members;  // Of "common".
    Fields fields;        // Those that differ from what an empty "common" gives.
  } rows[] = {
      {"", {}},
      {R"("link": ["a:1", ""], "link.default": ["", "b:2", 5], "lbs.backup": ["v", 1])",
       {{"link", R"(["a:1"])"}, {"default", R"(["b:2"])"}, {"backup", R"(["v", ""])"}}},
      {R"("lbs": "u", "zebdl": "d", "name": "n")", {{"lbs", "u"}, {"zeb_dl", "d"}, {"name", "n"}}},
      {R"("zebdls": [{"k": 1}], "zeb": "z")",
       {{"zeb_dl_list", R"([{"k": 1}])"}, {"zeb_list", "\"z\""}}},
      // Wrong types, no UTF-8, and too long for the client's buffer.
      {R"("link": "a:1", "link.default": {"b": 2}, "lbs": 1, "lbs.backup": "v", "zebdl": [])", {}},
      {R"("name": {}, "desc": null, "ttl": "60", "report": [])", {}},
      {"\"name\": \"a\xc3\", \"zeb\": [\"\xed\xa0\x80\"], \"desc\": \"\xf0\x9f\x99\x82\"",
       {{"desc", "\xf0\x9f\x99\x82"}}},
      {"\"zeb\": \"" + fits + '"', {{"zeb_list", '"' + fits + '"'}}},
      {"\"zeb\": \"x" + fits + '"', {}},
      {"\"zeb\": " + grows + "]", {}},
      {R"("msg.stat.enable": true)", {{"stat", "on"}}},
      {R"("msg.stat.enable": "true")", {{"stat", "off"}}},
      // Ten characters are a double, which has no 64-bit value.
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
    const auto answer = ReadLBSAnswer(Common(row.members));
    ASSERT_TRUE(answer) << row.members.substr(0, 200);
    EXPECT_TRUE(FieldsOf(*answer) == expected)
        << row.members.substr(0, 200) << " gives "
        << testing::PrintToString(FieldsOf(*answer)).substr(0, 1'000);
  }
  for (const char* text : {"", "null", "{\"Common\": {}}", "[\"common\"]"}) {
    EXPECT_FALSE(ReadLBSAnswer(text)) << text;
  }
}

TEST(LBSAnswerTest, TakesLinearTimeForManyLinksAndLogsAndKeepsOnlySoMuch) {
  constexpr int kLinks = 100'000;
  std::string links = "[\"1.2.3.4:0\"";
  for (int i = 1; i < kLinks; ++i) links += ",\"1.2.3.4:" + std::to_string(i) + '"';
  links += "]";
  const auto answer = ReadLBSAnswer(Common("\"link\": " + links + ", \"lbs.backup\": " + links));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->lbs_backup.size(), kMostBackupLBS);
  HostChooser chooser("d4:4", "d6:6", -1);
  {
    const test_support::CapturedLog log;
    chooser.ResetHosts(answer->link);
    EXPECT_LT(test_support::RecordedLog::Texts().at(0).size(), 10'000U);
  }
  std::string host;
  for (int i = 0; i < kLinks; ++i) ASSERT_FALSE(chooser.GetHost(kEMAddressFamilyIPv4, host)) << i;
  EXPECT_EQ(host, "1.2.3.4:99999");
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

}  // namespace
}  // namespace zo_tarvel
