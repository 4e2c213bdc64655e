#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "base/json/json11.h"
#include "base/text/strings.h"
#include "business/tarvel_lbs/active_answer.h"
#include "business/tarvel_lbs/count_timer_invoker.h"
#include "business/tarvel_lbs/update_request.h"
#include "tests/support/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scoped_task_thread.h"

// The pieces of the LBS service that work without an environment.
namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;
using zo_base::json11::ToJson;

std::string Common(const std::string& members) { return "{\"common\": {" + members + "}}"; }

TEST(LBSAnswerTest, IsCheckedInOrder) {
  const std::string longest = std::string(255, 'h') + ":80\"]";
  const std::string link = "\"link\": [7, \"\", \"" + longest, too_long = "[\"h" + longest;
  const std::string links = link + ", \"link.default\": [\"" + longest;
  const std::pair<std::string, const char*> rows[] = {
      {std::string(100'000, '['), "json parse error"},
      {R"(["common"])", "json common not find or not object"},
      {R"({"common": []})", "json common not find or not object"},
      {Common(R"("link": ["", 1, null, ["a:1"]])"), "json common link error"},
      {Common("\"link\": " + too_long), "json common link error"},
      {Common(link + ", \"link.default\": " + too_long), "json common default link error"},
      {Common(links + R"(, "lbs": ["u"])"), "json common lbs url error"},
      {Common(links + ", \"lbs\": \"\xc3\""), "json common lbs url error"},  // Can't be saved.
      // They would write lines of their own into the log.
      {Common(R"("link": ["a:1\n", "a\u007f:1", "a b:1"])"), "json common link error"},
      {Common(links + R"(, "lbs": "http://h/\nx")"), "json common lbs url error"},
      {Common(links + R"(, "lbs": "u")"), ""},
  };
  for (const auto& [text, error] : rows) {
    EXPECT_EQ(ParseLBSAnswer(text).error, error) << text.substr(0, 200);
  }
}

using Fields = std::map<std::string, std::string>;

Fields FieldsIn(const std::string& members) {
  const LBSAnswer answer = ParseLBSAnswer(Common(members)).answer.value();
  const auto& [on, host, count, time, min_delay] = answer.report;
  Fields fields{{"backup", ToJson(answer.lbs_backup).dump()},
                {"zeb", answer.zeb_list},
                {"name", answer.name},
                {"desc", answer.desc},
                {"ttl", std::to_string(answer.ttl)},
                {"report", (on ? "on " : "off ") + host + " " + std::to_string(count) + " " +
                               std::to_string(time) + " " + std::to_string(min_delay)}};
  for (const auto& [text, link_host, port, family] : answer.link) {
    fields["link"] += link_host + " " + std::to_string(port) + " " + std::to_string(family) + ", ";
  }
  if (answer.msg_stat_enable) fields["stat"] = *answer.msg_stat_enable ? "on" : "off";
  return fields;
}

TEST(LBSAnswerTest, SaysWhatItsMembersSay) {
  const std::string host = kDefaultStatisticsHost, local = kGeneratedLocally;
  // Members of "common", and the fields that differ from those of an empty one.
  const std::pair<std::string, Fields> rows[] = {
      {"", {{"ttl", "43200"}, {"report", "on " + host + " 10 60000 10000"}}},
      {R"("link": ["1.2.3.4:65535", "[2001:db8::1]:2", "n:65536", "n:99999999999999999999",
          "[::1"])",
       {{"link", "1.2.3.4 65535 1, [2001:db8::1] 2 2, n 0 0, n 0 0, [::1 0 0, "}}},
      {R"("lbs.backup": ["v", 1, "a\r\nb"], "zeb": [{"k": 1}])",
       {{"backup", R"(["v", "", ""])"}, {"zeb", R"([{"k": 1}])"}}},
      // Wrong types, and invalid UTF-8.
      {R"("link": "a:1", "lbs.backup": "v", "desc": null, "ttl": "60", "report": [])", {}},
      {"\"name\": \"a\xc3\", \"zeb\": [\"\xed\xa0\x80\"], \"desc\": \"\xf0\x9f\x99\x82\"",
       {{"desc", "\xf0\x9f\x99\x82"}}},
      {R"("msg.stat.enable": true)", {{"stat", "on"}}},
      {R"("msg.stat.enable": "true")", {{"stat", "off"}}},
      // A number of ten characters is a double, which reads as 0.
      {R"("ttl": 999999999)", {{"ttl", "999999999"}}},
      {R"("ttl": 1000000000)", {}},
      {R"("ttl": -1)", {{"ttl", "-1"}}},
      {R"("desc": "generated locally")", {{"desc", local}, {"ttl", "0"}}},
      {R"("report": {"host": "http://s", "apierror": {"on": false, "threshold":
          {"count": 3, "time": 4, "min_delay": 2147483647}}})",
       {{"report", "off http://s 3 4 2147483647000"}}},
      {R"("report": {"host": "s:443", "apierror": {"on": 1, "threshold":
          {"count": "3", "time": 4}}})",
       {{"report", "off https://s:443 0 4 10000"}}},
  };
  for (auto [members, expected] : rows) {
    expected.merge(FieldsIn(""));
    EXPECT_EQ(FieldsIn(members), expected) << members;
  }
}

TEST(LBSAnswerTest, HasLimitsInMemoryAndInTheLog) {
  constexpr std::size_t kLinks = 10'000;
  std::string links = "[\"\",\"1.2.3.4:0\"", grows = "[\"";
  for (std::size_t i = 1; i <= kLinks; ++i) links += ",\"1.2.3.4:" + std::to_string(i) + '"';
  while (grows.size() < 4'500'000) grows += "\u2028";  // Written out, it has six bytes, not three.
  const auto with = [&](const std::string& zeb) {
    return ParseLBSAnswer(Common("\"link\": " + links + "], \"link.default\": " + links +
                                 "], \"lbs.backup\": " + links + "], \"zeb\": " + zeb))
        .answer.value();
  };
  const std::string fits(kLBSTextBufferSize - 3, 'x');  // Plus two quotes and the zero.
  EXPECT_TRUE(with("\"x" + fits + '"').zeb_list.empty());
  EXPECT_TRUE(with(grows + "\"]").zeb_list.empty());
  const LBSAnswer answer = with('"' + fits + '"');
  EXPECT_EQ(answer.zeb_list.size(), kLBSTextBufferSize - 1);
  EXPECT_EQ(answer.lbs_backup.size(), kMostBackupLBS);
  EXPECT_EQ(answer.link.size(), kLinks);
  EXPECT_EQ(answer.default_link.back().port, 9'999);
  HostChooser chooser("d4:4", "d6:6", -1);
  const test_support::CapturedLog log;
  chooser.ResetHosts(answer.link);
  EXPECT_LT(test_support::RecordedLog::Texts().at(0).size(), 10'000U);
}

TEST(UpdateRequestTest, AsksTheUrlsThatFitFamilyAndScheme) {
  const Texts literals{"https://1.2.3.4/4", "https://[::1]/6", "https://n/"};
  const std::string v4 = "def.host https://1.2.3.4/4?", v6 = "def.host https://[::1]/6?",
                    name = "n https://n/?", main = "main https://main/?";
  const struct {
    Texts urls;
    std::uint32_t family;
    bool only_https;
    Texts entries;  // "<host> <url>".
  } rows[] = {
      {{"mailto:a", "http://[::1]/"}, 1, false, {main}},  // No other URL can be asked.
      {{"ftp://a/", "a/p", "", "https://a:1/p?x=y", "HTTP://a/"},
       0,
       false,
       {"a https://a:1/p?x=y&", "a HTTP://a/?"}},
      {{"https://bad%20host/", "http://a:99999/", "http://[::1/", literals[0]}, 0, false, {v4}},
      {literals, 0, false, {v4, v6, name}},
      {literals, 1, false, {v4, name}},
      {literals, 2, false, {v6, name}},
      // The first URL names the host of literals, even if it isn't asked.
      {{"http://a:80/", "https://1.2.3.4/"}, 0, true, {"a https://1.2.3.4/?"}},
      {{"ftp://a/", "http://1.2.3.4/"}, 0, false, {"def.host http://1.2.3.4/?"}},
      // Over https only: a port of an http URL speaks another protocol.
      {{"http://a:80/p", "http://[::1]:1/", "https://a:80/p", "HTTP://a/p",
        "http://a/?u=http://b/"},
       0,
       true,
       {"a https://a:80/p?", "a https://a/?u=https://b/&"}},
  };
  for (const auto& row : rows) {
    _ZOTarvelEnvironmentSettings of_environment;
    of_environment.only_https_supported = row.only_https ? 1 : 0;
    of_environment.single_request_timeout = 3'000;
    const auto config = std::make_shared<_EnvironmentConfig>();
    config->Load(of_environment);
    _ZOTarvelLBSSettings record;
    std::strcpy(record.def_lbs_host, "def.host");
    std::strcpy(record.lbs_main_addr, "https://main/");
    record.addr_family = row.family;
    record.sreq_timeout_ms = row.only_https ? 0 : 1;
    record.sreq_pred_fail_time_ms = 300;
    LBSSettings settings;
    settings.Assign(record, config.get());
    const UpdateRequest update(static_cast<zo_net::AddressFamily>(row.family), "");
    const auto request = update.ToHttpRequest(row.urls, "", settings, *config);
    EXPECT_EQ(request.time_out, row.only_https ? 3'000 : 1'000);
    EXPECT_EQ(request.multiple_time_out, row.only_https ? 200 : 300);
    Texts entries;
    for (const UrlEntry& entry : request.urls) {
      const std::string& url = entry.url.text();
      entries.push_back(entry.host + " " + url.substr(0, url.find("sv=")));
      EXPECT_EQ(url.back(), "201"[row.family]);  // The kind of network.
    }
    EXPECT_EQ(entries, row.entries) << testing::PrintToString(row.urls);
  }
}

TEST(HostChooserTest, HandsOutItsListThenADefault) {
  constexpr char kMixed[] = "1.2.3.4:1 [2001:db8::1]:2 name:3";
  const struct {
    const char* hosts;
    const char* families;  // Each a digit.
    const char* taken;     // A "*" marks a default.
    const char* defaults = "d4:4 d6:6";
    std::int32_t family_of_x = 3;  // "x:1" becomes the default of this one; 3 is none.
  } rows[] = {
      {"a:1 b:2", "0000", "a:1 b:2 *d4:4 a:1 "},
      {kMixed, "2222", "[2001:db8::1]:2 name:3 *d6:6 [2001:db8::1]:2 "},
      {kMixed, "1111", "1.2.3.4:1 name:3 *d4:4 1.2.3.4:1 "},
      {kMixed, "211", "[2001:db8::1]:2 name:3 *d4:4 "},  // One index for all families.
      {"1.2.3.4:1 127.1:2", "221", "*d6:6 *d6:6 1.2.3.4:1 "},
      {"", "123", "*d4:4 *d6:6 *d4:4 "},
      // A default that is a name suits any family.
      {"", "01", "*n:80 *1.2.3.4:80 ", "1.2.3.4:80 n:80"},
      {"", "02", "*n:80 *[::1]:80 ", "n:80 [::1]:80"},
      {"", "0", "*1.2.3.4:80 ", "1.2.3.4:80 [::1]:80"},
      {"", "12", "*x:1 *x:1 ", "d4:4 d6:6", 0},
      {"", "12", "*d4:4 *x:1 ", "d4:4 d6:6", 2},
  };
  for (const auto& row : rows) {
    const auto defaults = zo_base::Split(row.defaults, " ");
    HostChooser chooser(defaults[0], defaults[1], 1);
    chooser.SetDefaultHost(row.family_of_x, "x:1");
    std::vector<LinkAddress> hosts;
    for (const auto& host : zo_base::Split(row.hosts, " ")) hosts.push_back(SplitLinkAddress(host));
    chooser.ResetHosts(hosts);
    std::string taken, host;
    for (const char family : std::string(row.families)) {
      taken += chooser.GetHost(family - '0', host) ? "*" : "";
      taken += host + " ";
    }
    EXPECT_EQ(taken, row.taken) << row.hosts << " | " << row.defaults;
  }
}

struct CountTimerInvokerTest : testing::Test {
  CountTimerInvokerTest() { thread_->Start(); }

  static constexpr std::int32_t kSpan = 20;  // Milliseconds.
  test_support::ManualClock clock_;
  test_support::ScopedTaskThread thread_{clock_};
  const std::shared_ptr<CountTimerInvoker> invoker_ = std::make_shared<CountTimerInvoker>(
      3, kSpan, thread_->shared_from_this<zo_base::TaskThread>());
};

TEST_F(CountTimerInvokerTest, RunsTheLatestTaskOfABurst) {
  // One request a millisecond, capitals are immediate; then what has run by the last request, the
  // end of the first span, and in all.
  const std::pair<std::string, const char*> rows[] = {
      {"a", "|a|"}, {"ab", "|b|"},  {"abc", "c||"},   {"abcd", "c||d"},
      {"A", "A||"}, {"abC", "C||"}, {"abCd", "C||d"}, {"abCde", "C||e"}};
  for (const auto& [requests, expected] : rows) {
    std::string ran;
    for (const char name : requests) {
      invoker_->Invoke([&ran, name] { ran += name; }, name < 'a');
      clock_.Advance(1);
      ASSERT_TRUE(thread_.RunAllPosted());
    }
    for (const auto span : {kSpan - static_cast<std::int32_t>(requests.size()), kSpan}) {
      ran += "|";
      clock_.Advance(span);
      ASSERT_TRUE(thread_.RunAllPosted());
    }
    EXPECT_EQ(ran, expected) << requests;
  }
}

TEST_F(CountTimerInvokerTest, LosesNoRequestOfManyThreads) {
  for (int round = 0; round < 300; ++round) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < 3; ++i) {
          invoker_->Invoke([] {}, thread == 0 && i % 2 == 0);
          clock_.Advance(kSpan);
        }
      });
    }
    threads.clear();
    // A counted request without a span would keep this one from starting a span.
    const auto ran = std::make_shared<test_support::Event>();
    invoker_->Invoke([ran] { ran->Set(); }, false);
    clock_.Advance(kSpan);
    ASSERT_TRUE(ran->Await()) << round;
  }
}

}  // namespace
}  // namespace zo_tarvel
