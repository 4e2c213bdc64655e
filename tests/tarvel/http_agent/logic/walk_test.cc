#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "base/json/json11.h"
#include "base/text/strings.h"
#include "tests/support/raw_server.h"
#include "tests/tarvel/http_agent/agent_request.h"

// How one logical request walks along its URLs, against real servers.
namespace zo_tarvel {
namespace {

using namespace test_support;
using zo_base::Split;

constexpr int kNever = 60'000;  // Milliseconds; more than any test waits.

void Behave(const std::string& how, RawConnection& connection) {
  if (how == "silent") {
    connection.AwaitStop();
  } else if (how == "broken") {
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\ngood");
  } else {
    connection.Send(HttpAnswer(how.starts_with("good") ? "200 OK" : "500 Oops", how));
  }
}

// Waits until URL 1 was started, for "s1", or has failed, for "f1".
bool AwaitEvent(const std::string& event) {
  const std::string text =
      event[0] == 's' ? "[multiple]Start timer index:" : "[multiple][rsp]Remove timer index :";
  return RecordedLog::Await(text + event.substr(1));
}

// URLs that end in their index, each with a server that behaves as its word says; "bad<s1" does so
// as soon as URL 1 has been started. "refused" has no server.
struct Sites {
  explicit Sites(const std::string& behaviours) {
    for (const std::string& word : Split(behaviours, " ")) {
      if (word == "refused") {
        urls.push_back(kRefused);
        continue;
      }
      servers.emplace_back([parts = Split(word, "<")](RawConnection& connection) {
        if (connection.ReadRequest().empty()) return;
        if (parts.size() < 2 || AwaitEvent(parts[1])) Behave(parts[0], connection);
      });
      urls.push_back(servers.back().url("/" + std::to_string(urls.size())));
    }
  }

  Texts urls;
  std::list<RawServer> servers;
};

// What had each URL after the first one started: "t0" the timer of URL 0, "a1" the answer of 1.
Texts Moves() {
  constexpr std::string_view kBy = " triggered by :";
  Texts moves;
  for (const std::string& text : RecordedLog::Texts("[multiple]")) {
    const auto by = text.find(kBy);
    if (by == std::string::npos) continue;
    const char* const what = text.starts_with("[multiple][time out]") ? "t" : "a";
    moves.push_back(what + text.substr(by + kBy.size(), 1));
  }
  return moves;
}

// "500@0>1": code and URL of a failure, and the URL that made up for it.
std::string ToText(const TarvelExceptionData& record) {
  const auto name_of = [](const std::string& url) { return url.substr(url.rfind('/') + 1); };
  std::string error;
  const auto& [operation_type, url, code, description, context] = record.extension.at(0);
  const auto by = zo_base::json11::Json::parse(description, error)["corr_info"]["corr_url"];
  return std::to_string(code) + "@" + name_of(url) +
         (by.is_null() ? "" : ">" + name_of(by.string_value()));
}

struct Walk {
  std::string name;
  std::string urls;        // See Sites.
  std::string moves;       // See Moves.
  std::string judged;      // Index and code of each answer; the last one decides.
  std::string verdict;     // See Result.
  std::string statistics;  // See ToText.
  int multiple_time_out = kNever;
  int time_out = kNever;
};

const Walk kWalks[] = {
    {"a good answer is the end and passes its stop on", "good-and-stop good", "", "0:200",
     "success stop", ""},
    {"a transfer time-out starts the next", "silent good", "a0", "0:0 1:200", "success", "0@0>1",
     kNever, 1'000},
    {"a slow URL gets the next in parallel", "silent good", "t0", "1:200", "success", "", 200},
    {"a failure waits while another timer runs", "bad<s1 silent good", "t0 t1", "0:500 2:200",
     "success", "500@0>2", 1'500},
    {"a failure after all timers starts the next", "silent bad good", "t0 a1", "1:500 2:200",
     "success", "500@1>2", 1'500},
    {"the last URL's failure waits for others", "good<f1 bad", "t0", "1:500 0:200", "success",
     "500@1>0", 200},
    {"the last failure decides", "bad<f1 bad", "t0", "1:500 0:500", "failure", "500@1 500@0", 200},
    {"silent URLs fail one by one", "silent silent silent", "t0 t1", "0:0 1:0 2:0", "failure",
     "0@0 0@1 0@2", 300, 3'000},
    {"a stop is the end", "silent stop good", "t0", "1:500", "failure stop", "500@1", 200},
    {"a later URL makes up for all failures, and the same failure of the same URL is one",
     "bad refused refused broken good", "a0 a1 a2 a3", "0:500 1:0 2:0 3:0 4:200", "success",
     "500@0>4 0@refused>4 0@3>4"},
    {"what is not to be reported is not", "unnoticed bad", "a0", "0:500 1:500", "failure", "500@1"},
};

TEST(WalkTest, GoesByTheTable) {
  auto settings = AgentSettings();
  settings.enable_exception_data_reporting = 1;
  for (const Walk& walk : kWalks) {
    SCOPED_TRACE(walk.name);
    Sites sites(walk.urls);
    Results results;
    auto request = Request(sites.urls, results);
    request.multiple_time_out = walk.multiple_time_out;
    request.time_out = walk.time_out;
    AgentEnvironment environment(settings);
    SetExceptionDataReporter(TakeRecord);
    environment.InvokeHttpRequest(request, true);
    const Result result = results.Take();
    EXPECT_EQ(result.verdict, walk.verdict);
    EXPECT_EQ(result.judged, Split(walk.judged, " "));
    EXPECT_EQ(Moves(), Split(walk.moves, " "));
    // Reports go through the agent's thread several times.
    for (int i = 0; i < 4; ++i) Send(environment, {});
    Texts reported;
    for (const auto& record : records.TakeAll()) reported.push_back(ToText(record));
    EXPECT_EQ(reported, Split(walk.statistics, " "));
    environment.Exit();
    EXPECT_TRUE(results.TakeAll().empty());
  }
}

TEST(WalkTest, LogsOneLineAboutWhyAUrlFailed) {
  const std::string accents = "\xC3\xA9\xC3\xA9";
  const struct {
    std::string error, reason;  // Of a check, and in the log.
  } rows[] = {
      {"common is missing", "common is missing"},
      {"\r\n11-24 16:09:31.738 1-1 [LV_APP][x] \x1b[2J",
       "\\x0d\\x0a11-24 16:09:31.738 1-1 [LV_APP][x] \\x1b[2J"},
      {accents + "\xC2\x9B", accents + "\\xc2\\x9b"},
      {"\xFF\xC3\xA9", "\\xff\\xc3\\xa9"},
      {std::string(255, 'a') + accents, std::string(255, 'a') + "..."},
  };
  Sites sites("bad");
  AgentEnvironment environment;
  for (const auto& [error, reason] : rows) {
    Results results;
    auto request = Request({kRefused, sites.urls[0]}, results);
    request.check_callback = [check = request.check_callback,
                              error = error](const auto&... answer) {
      auto verdict = check(answer...);
      verdict.error_message = error;
      return verdict;
    };
    RecordedLog::Clear();
    environment.InvokeHttpRequest(request, true);
    results.Take();
    const auto logged = RecordedLog::Texts("[multiple][rsp]Failure reason index :");
    ASSERT_EQ(logged.size(), 2U);
    EXPECT_THAT(logged[0],
                testing::ContainsRegex("0 code :0 duration :[0-9]+ ms reason :Failed to connect"));
    EXPECT_THAT(logged[1], testing::EndsWith(" ms reason :" + reason));
  }
}

}  // namespace
}  // namespace zo_tarvel
