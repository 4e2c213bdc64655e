#include <gmock/gmock.h>

#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/text/strings.h"
#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"
#include "tests/support/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/raw_server.h"
#include "tests/support/scoped_task_thread.h"

// How one logical request walks along its URLs, against real servers.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using zo_base::Split;

constexpr int kNever = 60'000;  // Milliseconds; more than any test waits.
constexpr char kDestroyed[] = "[multiple]Request return,release request object";
constexpr char kRefused[] = "http://127.0.0.1:1/";  // Nobody listens on this port.

const std::string kGood = HttpAnswer("200 OK", "good");

// The check judges by the body, which is the name of the behaviour.
MultipleURLHttpRequest::CheckCallbackResult VerdictOn(const std::string& body) {
  return {.success = body.starts_with("good"),
          .add_statistic = body != "unnoticed",
          .stop = body.ends_with("stop"),
          .error_message = "judged false"};
}

void Behave(const std::string& how, RawConnection& connection) {
  if (how == "silent") {
    connection.AwaitStop();
  } else if (how == "reset" || how == "broken") {  // The latter amid a good body.
    if (how == "broken") connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\ngood");
    connection.Reset();
  } else {
    connection.Send(HttpAnswer(how == "bad" ? "500 Oops" : "200 OK", how));
  }
}

// Waits until URL 1 was started, for "s1", or has failed, for "f1".
bool AwaitEvent(const std::string& event) {
  const std::string text =
      event[0] == 's' ? "[multiple]Start timer index:" : "[multiple][rsp]Remove timer index :";
  return RecordedLog::Await(text + event.substr(1));
}

// A list of URLs, each with a server that behaves as its word says; "bad<s1" does so as soon as URL
// 1 has been started. "refused" has no server.
struct Sites {
  explicit Sites(const std::string& behaviours) {
    for (const std::string& word : Split(behaviours, " ")) {
      if (word == "refused") {
        entries.push_back({"", kRefused});
        continue;
      }
      servers.emplace_back([parts = Split(word, "<")](RawConnection& connection) {
        if (connection.ReadRequest().empty()) return;
        if (parts.size() < 2 || AwaitEvent(parts[1])) Behave(parts[0], connection);
      });
      entries.push_back({"", servers.back().url("/" + std::to_string(entries.size()))});
    }
  }

  std::vector<UrlEntry> entries;
  std::list<RawServer> servers;
};

struct Outcome {
  int signals = 0;
  bool stop = false, success = false;
  std::string headers, body;
  MultipleURLHttpRequest request;
  std::vector<_StatisticItem> items;
};

// Runs requests on a thread as the agent does on its own.
class Walker {
 public:
  Walker() { thread_->Start(); }

  MultipleURLHttpRequest Request(std::vector<UrlEntry> urls, int multiple_time_out = kNever,
                                 int time_out = kNever) {
    MultipleURLHttpRequest request;
    request.urls = std::move(urls);
    request.multiple_time_out = multiple_time_out;
    request.time_out = time_out;
    request.check_callback = [this](std::int32_t index, std::int32_t code, auto& url, auto& headers,
                                    auto& body, std::uint64_t) {
      judged.push_back(std::to_string(index) + ":" + std::to_string(code));
      last_judged = {url, headers, body};
      return VerdictOn(body);
    };
    return request;
  }

  // Waits for the end.
  const Outcome& Run(const MultipleURLHttpRequest& request) {
    Event over;
    judged.clear();
    outcome_ = {};
    thread_->PostTask([&] { Begin(request, over); });
    EXPECT_TRUE(over.Await());
    EXPECT_TRUE(thread_.RunAllPosted());
    EXPECT_EQ(outcome_.signals, 1);
    return outcome_;
  }

  std::vector<std::string> judged;       // Index and code of each answer.
  std::vector<std::string> last_judged;  // URL, headers and body of the last one.

 private:
  void Begin(const MultipleURLHttpRequest& request, Event& over) {
    auto* const helper = new MultipleURLHttpRequestHelper;
    helper->SetEnvironmentConfig(GetConfig());
    helper->SetRequest(request);
    helper->Connect<const bool, const bool, const std::string, const std::string,
                    const MultipleURLHttpRequest>(
        SIG_ALL_SUB_REQUEST_RETURN,
        [this, helper, &over](bool stop, bool success, auto& headers, auto& body, auto& adjusted) {
          const std::unique_ptr<MultipleURLHttpRequestHelper> owned(helper);
          const auto items = owned->TakeStatisticItems();
          outcome_ = {outcome_.signals + 1,        stop, success, headers, body, adjusted,
                      {items.begin(), items.end()}};
          over.Set();
        });
    helper->InvokeRequest();
  }

  Outcome outcome_;
  ScopedTaskThread thread_;  // Last: its tasks use the rest.
};

// What had each URL after the first one started: "t0" the timer of URL 0, "a1" the answer of 1.
// All were started in the order of the list, and none by a timer before its time.
std::vector<std::string> Moves(const std::vector<UrlEntry>& urls, int multiple_time_out) {
  constexpr char kStarted[] = "[multiple]Send sub url request:";
  constexpr std::string_view kBy = " triggered by :";
  std::vector<std::string> moves;
  std::vector<std::int64_t> starts;  // When each URL was started.
  for (const auto& [text, at] : RecordedLog::Records("[multiple]")) {
    if (text.starts_with(kStarted)) {
      EXPECT_EQ(text, kStarted + urls.at(starts.size()).url.text());
      starts.push_back(at);
    } else if (const auto by = text.find(kBy); by != std::string::npos) {
      const auto index = std::stoul(text.substr(by + kBy.size()));
      const bool by_timer = text.starts_with("[multiple][time out]");
      moves.push_back((by_timer ? "t" : "a") + std::to_string(index));
      if (!by_timer) continue;
      EXPECT_GE(at - starts.at(index), multiple_time_out);
      EXPECT_LE(at - starts.at(index), multiple_time_out + 10'000);
    }
  }
  EXPECT_EQ(starts.size(), moves.size() + 1);
  return moves;
}

// "500@0>1": code and URL of a failure, and the URL that made up for it.
std::vector<std::string> ToText(const std::vector<_StatisticItem>& items,
                                const std::vector<UrlEntry>& urls) {
  const auto index_of = [&](const std::string& url) {
    const auto same = [&](const UrlEntry& entry) { return entry.url.text() == url; };
    return std::to_string(std::find_if(urls.begin(), urls.end(), same) - urls.begin());
  };
  std::vector<std::string> texts;
  for (const auto& item : items) {
    texts.push_back(std::to_string(item.code) + "@" + index_of(item.url));
    if (item.corrected) texts.back() += ">" + index_of(item.corr_url);
    EXPECT_EQ(item.error_message, "judged false");
    EXPECT_EQ(item.exception_category, 0);  // Of a request without one.
    EXPECT_TRUE(item.duration >= 0 && item.corr_duration >= 0 && item.end_time > 0);
    EXPECT_EQ(item.corr_start_time > 0, item.corrected);
  }
  return texts;
}

struct Walk {
  std::string name;
  std::string urls;        // See Sites.
  std::string moves;       // See Moves.
  std::string judged;      // Index and code of each answer; the last one decides.
  std::string result;      // Its success, or else "failure"; "stop".
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
    {"the last URL's failure waits for others", "good<f1 wrong", "t0", "1:200 0:200", "success",
     "200@1>0", 200},
    {"the last failure decides", "bad<f1 wrong", "t0", "1:200 0:500", "failure", "200@1 500@0",
     200},
    {"silent URLs fail one by one", "silent silent silent", "t0 t1", "0:0 1:0 2:0", "failure",
     "0@0 0@1 0@2", 300, 3'000},
    {"a stop is the end", "silent stop good", "t0", "1:200", "failure stop", "200@1", 200},
    {"a later URL makes up for all failures, and the same failure of the same URL is one",
     "bad refused refused reset broken wrong good", "a0 a1 a2 a3 a4 a5",
     "0:500 1:0 2:0 3:0 4:0 5:200 6:200", "success", "500@0>6 0@1>6 0@3>6 0@4>6 200@5>6"},
    {"what is not to be reported is not", "unnoticed wrong", "a0", "0:200 1:200", "failure",
     "200@1"},
};

TEST(WalkTest, GoesByTheTable) {
  for (const Walk& walk : kWalks) {
    SCOPED_TRACE(walk.name);
    Sites sites(walk.urls);
    AgentEnvironment environment;
    Walker walker;
    const Outcome& outcome =
        walker.Run(walker.Request(sites.entries, walk.multiple_time_out, walk.time_out));
    EXPECT_EQ(Moves(sites.entries, walk.multiple_time_out), Split(walk.moves, " "));
    EXPECT_EQ(walker.judged, Split(walk.judged, " "));
    EXPECT_EQ(outcome.success, walk.result.starts_with("success"));
    EXPECT_EQ(outcome.stop, walk.result.ends_with("stop"));
    const std::string& decided = sites.entries.at(std::stoul(walker.judged.back())).url.text();
    EXPECT_THAT(walker.last_judged, ElementsAre(decided, outcome.headers, outcome.body));
    EXPECT_EQ(ToText(outcome.items, sites.entries), Split(walk.statistics, " "));
    environment.Exit();
    EXPECT_THAT(RecordedLog::Texts(kDestroyed), ElementsAre(kDestroyed));
  }
}

TEST(WalkRaceTest, TwoGoodAnswersAtOnceGiveOneResult) {
  AgentEnvironment environment;
  Walker walker;
  for (int round = 0; round < 50; ++round) {
    RecordedLog::Clear();
    Sites sites("good<s1 good<s1");
    EXPECT_TRUE(walker.Run(walker.Request(sites.entries, 1)).success);
    EXPECT_EQ(walker.judged.size(), 1U);
  }
}

TEST(WalkRaceTest, AnAnswerAfterTheEndReachesNobody) {
  Event sent;
  RawServer late([&](RawConnection& connection) {
    connection.ReadRequest();
    if (!RecordedLog::Await(kDestroyed)) return;
    connection.Send(kGood);
    sent.Set();
    connection.AwaitStop();
  });
  RawServer prompt(AnswerWith(kGood));
  AgentEnvironment environment;
  Walker walker;
  walker.Run(walker.Request({{"", late.url("/")}, {"", prompt.url("/")}}, 1));
  ASSERT_TRUE(sent.Await());
  walker.Run(walker.Request({{"", prompt.url("/")}}));  // The late answer comes before this one's.
  EXPECT_THAT(walker.judged, ElementsAre("0:200"));
  EXPECT_EQ(walker.last_judged[0], prompt.url("/"));
}

TEST(WalkAdjustmentTest, ChangesTheRequestAsTheSettingsSay) {
  const std::string name = "http://localhost:1/";
  for (const bool changed : {false, true}) {
    auto settings = AgentSettings();
    settings.http_request_ip_preferred = changed ? 1 : 0;
    settings.enable_httpdns = changed ? -1 : 0;
    AgentEnvironment environment(settings);
    Walker walker;
    auto request =
        walker.Request({{"a", name}, {"1", kRefused}, {"b", name}, {"2", "http://[::1]:1/"}});
    request.headers = {changed ? "-X-VELDRIN-TRACE-ID:" : "A:b"};
    request.context.trace_id = "t";
    const MultipleURLHttpRequest& adjusted = walker.Run(request).request;
    std::string order;  // Of the hosts.
    for (const UrlEntry& entry : adjusted.urls) order += entry.host;
    EXPECT_EQ(order, changed ? "12ab" : "a1b2");
    EXPECT_EQ(adjusted.use_http_dns_if_fail, !changed);
    auto headers = request.headers;
    if (!changed) headers.push_back("X-VELDRIN-TRACE-ID:t");
    EXPECT_EQ(adjusted.headers, headers);
    environment.Exit();
    EXPECT_EQ(RecordedLog::Texts("[HttpDNSService]Uninit unenable httpdns, return").size(),
              changed ? 1U : 0U);
  }
}

}  // namespace
}  // namespace zo_tarvel
