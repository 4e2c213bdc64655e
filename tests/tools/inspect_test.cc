// What can be read from the directory of a client.
#include "tools/inspect/report.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <tarvel/client.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/text/strings.h"
#include "tests/support/raw_server.h"
#include "tests/support/temp_directory.h"
#include "tools/inspect/log_records.h"
#include "tools/inspect/moments.h"

namespace tarvel_inspect {
namespace {

using namespace std::chrono_literals;
using namespace test_support;
using namespace testing;

constexpr std::int64_t kNow = 1'800'000'000'000;

std::string Answer(const std::string& lbs) {
  return R"({"common": {"lbs": ")" + lbs +
         R"(", "ttl": 3600, "link": ["192.0.2.11:8080"], "link.default": ["192.0.2.99:1"]}})";
}

class LiveClientTest : public Test {
 protected:
  // Runs a client until its first update has ended, and inspects what it left.
  Report Live(const std::string& url, const std::vector<std::string>& backups = {}) {
    tarvel::Settings settings;
    settings.token = "secret";
    settings.directory = directory_.path();
    settings.lbs_url = url;
    settings.backup_lbs_urls = backups;
    settings.https_only = settings.httpdns = false;
    settings.request_timeout = 1s;
    settings.head_start = 500ms;
    std::string error;
    auto client = tarvel::Client::Start(settings, error);
    EXPECT_TRUE(client) << error;
    client->Update(true);
    client->WaitForAnswer(20s);
    client.reset();
    const auto directories = ClientDirectories(directory_.path());
    EXPECT_EQ(directories.size(), 1U);
    return Inspect(directories.at(0), "", {}, kNow);
  }

  const TempDirectory directory_;
};

TEST_F(LiveClientTest, NamesWhyItsServerFailed) {
  const RawServer busy(AnswerWith(HttpAnswer("503 Busy", "")));
  const RawServer cut(AnswerWith(HttpAnswer("200 OK", "{\"common\"")));
  const RawServer rude([](RawConnection& connection) {
    connection.ReadRequest();
    connection.Reset();
  });
  const RawServer dumb(NeverAnswers());
  const std::pair<std::string, std::string> rows[] = {
      {"http://127.0.0.1:1/lbs",
       "The connection is refused, or there is no route: http://127.0.0.1:1."},
      {"http://name.invalid/lbs", "The name server knows no address of name.invalid."},
      {busy.url("/lbs"), "The server answers with status 503: " + busy.url("/lbs") + "."},
      {cut.url("/lbs"), "The answer is no JSON: " + cut.url("/lbs") + "."},
      {rude.url("/lbs"), "The connection is reset: " + rude.url("") + "."},
      {dumb.url("/lbs"), "The server is connected but silent: " + dumb.url("") + "."}};
  for (const auto& [url, title] : rows) {
    const Report report = Live(url);
    ASSERT_TRUE(report.verdict && !report.verdict->causes.empty()) << url;
    EXPECT_EQ(report.verdict->causes[0].title, title);
    EXPECT_THAT(report.verdict->causes[0].evidence,
                ElementsAre(HasSubstr("Failure reason index :0")));
    EXPECT_FALSE(report.verdict->has_fresh_answer);
    EXPECT_TRUE(report.caches.answer.is_local);
    for (const std::string& text : {ToText(report), ToJson({report}).dump()}) {
      EXPECT_THAT(text, Not(HasSubstr("secret")));
    }
  }
}

TEST_F(LiveClientTest, ShowsWhatOvertookASlowServer) {
  const RawServer dumb(NeverAnswers());
  const RawServer good(AnswerWith(HttpAnswer("200 OK", Answer("http://127.0.0.1:1/next"))));
  const Report report = Live(dumb.url("/lbs"), {good.url("/lbs"), "http://127.0.0.1:1/unused"});
  EXPECT_TRUE(report.verdict->has_fresh_answer);
  EXPECT_EQ(report.lives.back().Setting("business type"), "im_g1");
  EXPECT_THAT(report.caches.answer.links, ElementsAre("192.0.2.11:8080"));
  EXPECT_EQ(report.caches.answer.next_url, "http://127.0.0.1:1/next");
  ASSERT_EQ(report.lives.back().requests.size(), 1U);
  const Walk& walk = report.lives.back().requests[0].first;
  ASSERT_EQ(walk.attempts.size(), 2U);
  EXPECT_EQ(walk.urls.size(), 3U);
  EXPECT_FALSE(walk.attempts[0].end);
  EXPECT_THAT(*walk.attempts[0].head_start_over - walk.start, AllOf(Ge(490), Lt(1'000)));
  EXPECT_TRUE(walk.attempts[1].good);
  EXPECT_EQ(walk.attempts[1].cause, Attempt::Cause::kHeadStart);
}

// The lines of a log: "at thread text", in milliseconds of a minute, thread "1" to "9".
std::string LogOf(const std::string& lines, int process = 7) {
  std::string log;
  for (const std::string& line : zo_base::Split(lines, "\n")) {
    const auto parts = zo_base::Split(line, " ");
    log += zo_base::StringFormat("11-24 16:09:%02d.%03d %d-%s [LV_APP][x] ",
                                 std::stoi(parts[0]) / 1'000, std::stoi(parts[0]) % 1'000, process,
                                 parts[1].c_str());
    log +=
        zo_base::ReplaceAll(line.substr(parts[0].size() + parts[1].size() + 2), "|", "\r\n") + "\n";
  }
  return log;
}

// "LBS update answered: 0@0-5=503 1@5-9=200 / 0@20-=0", the second try behind the slash.
std::string Brief(const Walk& walk) {
  std::string text;
  for (const Attempt& attempt : walk.attempts) {
    text += ' ' + attempt.url.substr(attempt.url.rfind('/') + 1) + '@' +
            std::to_string(attempt.start % 60'000) + '-';
    if (attempt.end)
      text += std::to_string(*attempt.end % 60'000) + '=' + std::to_string(attempt.code);
    if (!attempt.reason.empty()) text += '(' + attempt.reason + ')';
  }
  return text;
}
std::string Brief(const std::vector<Life>& lives) {
  std::string text;
  for (const Life& life : lives) {
    for (const Request& request : life.requests) {
      text +=
          PurposeOf(request) + ' ' + NameOf(request.Last().outcome) + ':' + Brief(request.first);
      if (request.second) text += " /" + Brief(*request.second);
      text += '\n';
    }
  }
  return text;
}

std::string Begin(const std::string& at, const std::string& hosts_and_urls) {
  std::string list;
  for (const std::string& entry : zo_base::Split(hosts_and_urls, " ")) {
    const auto parts = zo_base::Split(entry, "=");
    list += "host:" + parts[0] + " url:https://" + parts[1] + "|";
  }
  const auto first = zo_base::Split(hosts_and_urls, "= ")[1];
  return at + " 1 [multiple]Invoke send multiple_time_out:100 time_out:900 use http dns:true\n" +
         at + " 1 [multiple]Invoke send multiple url|---|url list[adjustment]:|" + list + "---\n" +
         at + " 1 [multiple]Send sub url request:https://" + first + "\n";
}
std::string End(const std::string& at, const std::string& index, const std::string& url,
                const std::string& code, const std::string& reason = "") {
  std::string text = at + " 1 [multiple][rsp]Index:" + index + " code :" + code + "\n" + at +
                     (reason.empty() ? " 1 [multiple][rsp] true,index :"
                                     : " 1 [multiple][rsp]Business check response false,index :") +
                     index + " url:https://" + url + "\n";
  if (!reason.empty()) {
    text += at + " 1 [multiple][rsp]Failure reason index :" + index + " code :" + code +
            " duration :1 ms reason :" + reason + "\n";
  }
  return text;
}

TEST(InspectTest, PutsRequestsTogether) {
  const struct {
    std::string name, lines, requests;
  } rows[] = {
      {"two requests of a thread, whose timers both end",
       Begin("0", "h=h/a h=h/b") + Begin("10", "g=g/c g=g/d") +
           "100 1 [multiple][time out]Sub url request time out index:0\n"
           "100 1 [multiple][time out]Switch to index :1 triggered by :0\n"
           "101 1 [multiple]Send sub url request:https://h/b\n"
           "110 1 [multiple][time out]Sub url request time out index:0\n"
           "110 1 [multiple][time out]Switch to index :1 triggered by :0\n"
           "111 1 [multiple]Send sub url request:https://g/d\n" +
           End("120", "1", "h/b", "200") + End("130", "0", "g/c", "200"),
       "LBS update answered: a@0- b@101-120=200\nLBS update answered: c@10-130=200 d@111-\n"},
      {"a second try on addresses",
       Begin("0", "h=h/a") + End("5", "0", "h/a", "0", "refused") +
           "5 1 [multiple][rsp]All sub url has been requested\n"
           "6 1 [multiple]Request return false, use http dns if fail:true\n"
           "6 1 [multiple]Use http dns,host_list size:1\n"
           "9 1 [multiple]User http dns, host:hip list:\n"
           "9 1 [multiple]User http dns, ------192.0.2.1\n" +
           Begin("10", "h=192.0.2.1/a") + End("12", "0", "192.0.2.1/a", "200"),
       "LBS update answered: a@0-5=0(refused) / a@10-12=200\n"},
      {"a log whose begin was cut, and an end that belongs to nothing",
       "0 1 [multiple]Send sub url request:https://h/a?k=secret\n" + End("3", "0", "h/z", "200") +
           End("4", "0", "h/a?k=secret", "200"),
       "LBS update answered: a@0-4=200\n"},
      {"no network",
       "0 1 [multiple]Request cancel,internet connected is false url list:| --https://h/a|",
       "LBS update no network:\n"},
  };
  for (const auto& [name, lines, requests] : rows) {
    const std::string log = LogOf(lines);
    EXPECT_EQ(Brief(ReadLives(ReadRecords(log, kNow)).lives), requests) << name;
  }
}

TEST(InspectTest, ReadsWhatIsLeftAndSaysWhatIsNot) {
  const std::string good = LogOf("0 1 |------------------- start -------------------\n1 1 more");
  std::string companion(64, '\0');
  const std::int32_t used = static_cast<std::int32_t>(good.size());
  std::memcpy(companion.data(), &used, sizeof used);
  companion.replace(4, std::string::npos, good);
  const struct {
    std::string name, log, companion;
    std::size_t lives;
    std::string text;
  } rows[] = {
      {"nothing", "", "", 0, "No life of a client"},
      {"a foreign file", std::string(100'000, '\xff'), "", 0, "holds no record"},
      {"killed: all is in the companion", "", companion, 1, "NO REGULAR EXIT"},
      {"a damaged count", good, "\xff\xff\xff\x7f" + good, 1, "damaged count"},
      {"cut short", good, "ab", 1, "cut short"},
      {"both, since text was being moved", good, companion, 1, "Process 7"},
      {"cut inside a line", good.substr(9), "", 1, "Its start is not in the log"},
      {"moved in part", good.substr(0, good.size() - 9), companion, 1, "Process 7"},
      {"moved, and more text behind it", good + LogOf("2 1 later"), companion, 1, "Process 7"},
      {"an answer that forges a life",
       good + LogOf("2 1 [http dns] Query hosts`s ip success = false|--|"
                    "11-24 16:09:00.003 8-1 [LV_APP][x] me|--\n3 1 end"),
       "", 1, "Process 7"},
      {"another process between an answer and the next line",
       good + LogOf("2 1 [http dns] Query hosts`s ip success = false|--|{}|--") +
           LogOf("3 1 a", 9) + LogOf("4 1 end") + LogOf("5 1 b", 9),
       "", 2, "Process 9"},
      {"killed behind an answer, and started anew",
       good + LogOf("2 1 [http dns] Query hosts`s ip success = false|--|{}|--") + LogOf("3 1 a", 9),
       "", 2, "Process 9"},
      {"a cut answer that forges a life",
       "{\n" + LogOf("0 1 me", 8) + "\n-----------------------\n" + good + LogOf("2 1 a", 8), "", 2,
       "Process 8"},
      {"a cut answer of which nothing is repeated",
       "{\n" + LogOf("0 1 me", 8) + "\n-----------------------\n" + good, "", 1, "Process 7"},
      {"moved in part, and loaded by the next start",
       good.substr(0, 90) + "\r\n -----------------------load from mmap file begin" +
           "-----------------------\r\n" + good +
           "\r\n -----------------------load from mmap file end-----------------------\r\n",
       "", 1, "Process 7"},
      {"times that don't exist",
       good + "13-01 00:00:00.000 8-1 [LV_APP][x] a\n02-30 00:00:00.000 8-1 [LV_APP][x] b\n"
              "01-01 24:00:00.000 8-1 [LV_APP][x] c\n",
       "", 1, "Process 7"},
      {"the lines of another process",
       good + LogOf("2 1 forged|11-24 16:09:00.003 8-1 [LV_APP][x] me"), "", 2, "Process 8"},
      {"control bytes", good + LogOf("2 1 [lbs] Get link address \x1b[2J\x9b use default:"), "", 1,
       "\\x1b[2J\\x9b"},
  };
  for (const auto& [name, log, kept, lives, text] : rows) {
    SCOPED_TRACE(name);
    const TempDirectory directory;
    if (!log.empty()) WriteFile(directory / "tarvel_comp.log", log);
    if (!kept.empty()) WriteFile(directory / "tarvel_comp.log.kvr_mmap", kept);
    const Report report = Inspect(directory.path(), "", {}, kNow);
    EXPECT_EQ(report.lives.size(), lives);
    EXPECT_THAT(ToText(report), HasSubstr(text));
    EXPECT_THAT(ToJson({report}).dump(), Not(IsEmpty()));  // Throws for what is no UTF-8.
  }
  const TempDirectory directory;
  ASSERT_EQ(mkfifo((directory / "tarvel_comp.log").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", directory / "tarvel_comp.log.kvr_mmap");
  EXPECT_EQ(Inspect(directory.path(), "", {}, kNow).problems.size(), 2U);
}

TEST(InspectTest, LeavesOutWhatIsNotWanted) {
  const std::string log =
      LogOf(Begin("0", "h=h/a") + Begin("5000", "h=h/b") + Begin("9000", "h=h/c"));
  const TempDirectory directory;
  WriteFile(directory / "tarvel_comp.log", log);
  const auto count = [&](const Filter& filter) {
    const Report report = Inspect(directory.path(), "", filter, kNow);
    return report.lives.empty() ? 99 : static_cast<int>(report.lives[0].requests.size());
  };
  const std::int64_t first = Inspect(directory.path(), "", {}, kNow).lives.at(0).start;
  Filter since, last, process;
  since.since = first + 5'000;
  last.last = 1;
  process.process = 8;
  EXPECT_EQ(count({}), 3);
  EXPECT_EQ(count(since), 2);
  EXPECT_EQ(count(last), 1);
  EXPECT_EQ(count(process), 99);
  const std::pair<const char*, std::optional<std::int64_t>> moments[] = {
      {"90s", kNow - 90'000},    {"2h", kNow - 7'200'000}, {"-1s", {}}, {"s", {}}, {"99:99", {}},
      {"1970-01-01 00:00 ", {}}, {"2026-02-30 00:00", {}}};
  for (const auto& [text, at] : moments) EXPECT_EQ(ReadMoment(text, kNow), at) << text;
  EXPECT_EQ(FormatTime(*ReadMoment("2026-11-24 16:09:31", kNow)), "2026-11-24 16:09:31.000");
}

}  // namespace
}  // namespace tarvel_inspect
