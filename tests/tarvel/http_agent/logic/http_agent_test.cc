#include "tarvel/http_agent/logic/http_agent.h"

#include <atomic>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tarvel/environment/configuration/exception_data.h"
#include "tarvel/environment/configuration/exception_reporter_interface.h"
#include "tarvel/http_agent/logic/internet_reachability.h"
#include "tests/support/child_process.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/private_network.h"
#include "tests/support/raw_server.h"
#include "tests/support/scoped_task_thread.h"
#include "tests/support/transport.h"
#include "tests/tarvel/http_agent/agent_request.h"

// Logical requests as the library's own parts send them, through a whole environment.
namespace zo_tarvel {
namespace {

using namespace std::string_literals;
using namespace test_support;

// Answers "/bad" with a failure, and repeats the body of any other request.
struct Site : HttpServer {
  Site() {
    Answer("/bad", [](const SeenRequest&) { return ServerAnswer{500, {}, "bad"}; });
  }
};

TEST(HttpAgentTest, GivesOneResultOnItsThreadWhoeverAsks) {
  const Site site;
  for (const std::string caller : {"thread of a client", "the same, at once", "task thread"}) {
    for (const Texts& urls : {Texts{kRefused, site.url("/bad"), site.url("/good")}, Texts{}}) {
      Results results;
      AgentEnvironment environment;
      ScopedTaskThread worker;
      worker->Start();
      auto request = Request(urls, results);
      request.request_type = 1;
      request.body = "question";
      const bool post = caller == "thread of a client";
      const auto ask = [&] { environment.InvokeHttpRequest(request, post); };
      caller == "task thread" ? worker->PostTask(ask) : ask();
      const Result result = results.Take();
      environment.Exit();
      EXPECT_TRUE(results.TakeAll().empty());
      // Without a URL there is nothing to wait for.
      const bool at_once = urls.empty() && caller == "task thread";
      EXPECT_EQ(result.thread, at_once ? "worker" : "http_agent_work") << caller;
      EXPECT_EQ(result.verdict + ":" + result.body,
                urls.empty() ? "failure stop:" : "success:question");
    }
  }
}

TEST(HttpAgentTest, TranslatesARequestAndItsAnswerForTheTransport) {
  HttpServer server;
  const std::string ip = "127.0.0.1", port = ":" + std::to_string(server.port());
  const struct {
    std::string url, host, header;
    std::string seen_host, seen_header;
    std::string answer, body;
  } rows[] = {
      {server.url("/"), "a.example", "X-One:1", "a.example", "1", "abc", "abc"},
      {server.url("/"), "", "X-One:1:2:3", ip, "3", "ab\0c"s, "ab"},  // As C code would read it.
      {"http://localhost" + port, "a.example", "X-One", "a.example", "", "\0ab"s, "\0ab"s},
      {"http://localhost" + port, "a.example", "hOsT:b.example", "b.example", "", "", ""},
      {server.url("/"), "", "X-Two:2\r\nX-One", ip, "", "abc", "abc"},
  };
  AgentEnvironment environment;
  for (const auto& row : rows) {
    server.Answer("/", [&](auto&&) { return ServerAnswer{200, {{"B", " 2"}}, row.answer}; });
    Results results;
    auto request = Request({}, results);
    request.urls = {{row.host, row.url}};
    request.headers = {row.header};
    environment.InvokeHttpRequest(request, true);
    const Result result = results.Take();
    const SeenRequest seen = server.requests().back();
    EXPECT_EQ((Texts{seen.method, seen.header("Host"), seen.header("X-One"), result.headers,
                     result.body}),
              (Texts{"GET", row.seen_host, row.seen_header,
                     "B:2\r\nContent-Length:" + std::to_string(row.answer.size()), row.body}))
        << row.url << " for '" << row.host << "' with '" << row.header << "'";
  }
}

TEST(HttpAgentTest, GivesEachOfManyParallelRequestsOneResult) {
  constexpr std::size_t kThreads = 8, kEach = 50;
  const Site site;
  RawServer late([](RawConnection& connection) {
    connection.ReadRequest();
    connection.AwaitStop(std::chrono::milliseconds(50));
    connection.Send(HttpAnswer("200 OK", "good"));
  });
  const std::string urls[] = {site.url("/"), late.url("/"), site.url("/bad"), kRefused};
  std::vector<Results> results(kThreads * kEach);
  AgentEnvironment environment;
  std::vector<std::jthread> threads;
  for (std::size_t begin = 0; begin < results.size(); begin += kEach) {
    threads.emplace_back([&, begin] {
      for (std::size_t i = begin; i < begin + kEach; ++i) {
        auto request = Request({urls[i % 4], urls[i / 4 % 4]}, results[i]);
        request.multiple_time_out = 1;  // So that two good answers often come at once.
        environment.InvokeHttpRequest(request, true);
      }
      GetTarvelObject(1)->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
    });
  }
  threads.clear();
  for (std::size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(results[i].Take().verdict, i % 4 < 2 || i / 4 % 4 < 2 ? "success" : "failure") << i;
  }
  // Those requests are over whose other URL is still to be answered.
  constexpr char kDestroyed[] = "[multiple]Request return,release request object";
  EXPECT_EQ(RecordedLog::Texts(kDestroyed).size(), results.size());
  EXPECT_EQ(Send(environment, {late.url("/")}).verdict, "success");
  environment.Exit();
  for (Results& one : results) EXPECT_TRUE(one.TakeAll().empty());
}

TEST(ExitTest, InOrDuringACallbackIsTheEnd) {
  RawServer silent(NeverAnswers());
  HttpServer good;
  for (const bool in_callback : {true, false}) {
    for (const std::string where : {"check of a good answer", "check of a bad one", "result"}) {
      SCOPED_TRACE(where + (in_callback ? " exits" : " runs meanwhile"));
      Results results;
      std::atomic<int> checks{0};
      Event entered;
      AgentEnvironment environment;
      const auto act = [&] {
        if (in_callback) ExitTarvelEnvironment(1);
        entered.Set();
        // An exit on another thread waits for the callback.
        EXPECT_TRUE(in_callback || RecordedLog::Await("stop http agent begin"));
      };
      for (int i = 0; i < 20; ++i) {  // All but one wait behind the callback.
        auto request = Request(
            {where == "check of a bad one" ? kRefused : good.url("/"), silent.url("/")}, results);
        request.check_callback = [&, then = request.check_callback](auto&&... answer) {
          if (checks++ == 0 && where != "result") act();
          return then(answer...);
        };
        request.result_callback = [&, then = request.result_callback](auto&&... outcome) {
          if (where == "result") act();
          then(outcome...);
        };
        environment.InvokeHttpRequest(request, true);
      }
      EXPECT_TRUE(entered.Await());
      EXPECT_LT(MillisecondsOf([&] { environment.Exit(); }), 5'000);
      EXPECT_EQ(GetTarvelObject(1), nullptr);
      const int checked = checks;
      if (!in_callback) results.TakeAll();
      // Nothing comes after the exit, also in a new environment in which a request is answered.
      AgentEnvironment next;
      EXPECT_EQ(Send(next, {good.url("/")}).verdict, "success");
      next.Exit();
      EXPECT_EQ(results.TakeAll().size(), in_callback && where == "result" ? 1U : 0U);
      EXPECT_EQ(checks, checked);
    }
  }
}

// The answer that fails the first URL comes between the end of the agent and that of the transport.
TEST(ExitTest, EndsAWalkOnAThreadOfTheClient) {
  Event asked, stopped, received;
  RawServer server([&](RawConnection& connection) {
    connection.ReadRequest();
    asked.Set();
    if (stopped.Await()) connection.Send(HttpAnswer("500 Oops", ""));
  });
  AgentEnvironment environment;
  ScopedTaskThread worker;
  worker->Start();
  Results results;
  const auto request = Request({server.url("/"), server.url("/")}, results);
  worker->PostTask([&] { environment.InvokeHttpRequest(request, false); });
  ASSERT_TRUE(asked.Await());
  GetStorage()->http_agent->Uninit();
  stopped.Set();
  // The transport delivers that answer before the one to this request.
  const auto later = std::make_shared<WQBASE::network::HttpRequestUser>();
  later->setUrl(server.url("/later"));
  later->callback = [&](auto&&...) { received.Set(); };
  worker->PostTask([&] { GetHttpClient()->send(later); });
  ASSERT_TRUE(received.Await() && worker.RunAllPosted());
  EXPECT_EQ(RecordedLog::Texts("[multiple]Send sub url request:").size(), 1U);
  EXPECT_EQ(server.connections(), 2);
}

TEST(ExitTest, AtAnyMomentEndsCleanly) {
  RawServer silent(NeverAnswers());
  const Site site;
  for (int round = 0; round < 100; ++round) {
    std::vector<Results> results(20);
    AgentEnvironment environment;
    for (Results& one : results) {
      auto request = Request({silent.url("/"), kRefused, site.url("/bad"), site.url("/")}, one);
      request.multiple_time_out = 1;
      environment.InvokeHttpRequest(request, true);
    }
    if (round % 2 == 1) results[0].Put(results[0].Take());
    EXPECT_LT(MillisecondsOf([&] { environment.Exit(); }), 5'000);
    for (Results& one : results) EXPECT_LE(one.TakeAll().size(), 1U);
  }
}

TEST(HttpAgentNetworkTest, PostedRequestsNeedAWayOutOfThisHost) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    EXPECT_FALSE(IsInternetReachable());
    const auto ip = [](const std::string& command) {
      return std::system(("PATH=$PATH:/usr/sbin ip " + command).c_str()) == 0;
    };
    EXPECT_TRUE(ip("route add default dev lo"));  // It ends in this host.
    HttpServer server;
    auto settings = AgentSettings();
    settings.try_http_request_on_netunav = -1;
    const struct {
      bool way_out, posted;
      const char* verdict;
    } rows[] = {{false, true, "failure stop"}, {false, false, "success"}, {true, true, "success"}};
    for (const auto& row : rows) {
      SCOPED_TRACE(&row - rows);
      // The system takes this one for an address of another network.
      EXPECT_TRUE(!row.way_out || ip("address add 10.1.2.3 dev lo"));
      EXPECT_EQ(IsInternetReachable(), row.way_out);
      Results results;
      AgentEnvironment environment(settings);
      auto request = Request({server.url("/")}, results);
      environment.InvokeHttpRequest(request, row.posted);
      EXPECT_EQ(results.Take().verdict, row.verdict);
      request.result_callback = nullptr;
      environment.InvokeHttpRequest(request, row.posted);
      Send(environment, {});
    }
    return 0;
  });
}

void Report(ExceptionDataDetails details) {
  GetConfig()->GetExceptionReporter()->ReportException(
      std::make_shared<ExceptionDataDetails>(std::move(details)));
}
void Report(const std::string& process_id) { Report({process_id, 1, 0, 0, 1, 0, {{}}}); }

TEST(ExceptionRecordsTest, CarryAllFields) {
  AgentEnvironment environment;
  SetExceptionDataReporter(TakeRecord);
  Report({"a\"b", 2, 1LL << 40, 1LL << 41, 3, 4, {{5, "target", 6, "what", "more"}, {}}});
  const TarvelExceptionData data = records.Take();
  EXPECT_EQ(data.user_info + data.reserved_info, "");  // The JSON never has them.
  EXPECT_THAT(ReadFile(PROTOCOL_PAGE),
              testing::HasSubstr("json\n" + TarvelExceptionDataToJsonString(data) + "\n```"));
}

TEST(ExceptionRecordsTest, HoldAMebibyteOfOneRequestsAnswers) {
  const RawServer large(AnswerWith(HttpAnswer("503 Busy", std::string(700 << 10, 'a'))));
  auto settings = AgentSettings();
  settings.enable_exception_data_reporting = 1;
  AgentEnvironment environment(settings);
  SetExceptionDataReporter(TakeRecord);
  Send(environment, {large.url("/a"), large.url("/b"), large.url("/c")});
  for (const std::size_t size : {700 << 10, 324 << 10, 0}) {
    EXPECT_NEAR(records.Take().extension.at(0).description.size(), size, 1'000);
  }
}

TEST(ExceptionRecordsTest, GoOnceAndInOrderToTheFirstFunction) {
  constexpr int kThreads = 8, kEach = 200;
  // Marks the record.
  const auto second = [](const TarvelExceptionData&) { records.Put({}); };
  SetExceptionDataReporter(second);  // Before the start: not remembered.
  AgentEnvironment environment;
  Report({"without a failure", 1, 0, 0, 1, 0, {}});
  SetExceptionDataReporter(nullptr);
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kEach; ++i) {
        Report(std::to_string(1'000 * t + i));
        if (i == kEach / 2) SetExceptionDataReporter(TakeRecord);
      }
    });
  }
  threads.clear();
  SetExceptionDataReporter(second);
  Report("8000");
  std::map<int, int> next;  // Those of one thread keep their order.
  for (int i = 0; i < kThreads * kEach + 1; ++i) {
    const int id = std::stoi(records.Take().process_id);
    EXPECT_EQ(id % 1'000, next[id / 1'000]++);
  }
  environment.Exit();
  EXPECT_TRUE(records.TakeAll().empty());
  AgentEnvironment another;
  Report("9000");
  SetExceptionDataReporter(second);
  EXPECT_EQ(records.Take().process_id, "");
}

}  // namespace
}  // namespace zo_tarvel
