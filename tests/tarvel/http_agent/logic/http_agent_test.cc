#include "tarvel/http_agent/logic/http_agent.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/thread/thread_info.h"
#include "tarvel/environment/configuration/exception_data.h"
#include "tarvel/environment/configuration/exception_reporter_interface.h"
#include "tarvel/http_agent/logic/internet_reachability.h"
#include "tests/support/agent_environment.h"
#include "tests/support/child_process.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/mailbox.h"
#include "tests/support/private_network.h"
#include "tests/support/raw_server.h"
#include "tests/support/scoped_task_thread.h"
#include "tests/support/transport.h"

// Logical requests as the library's own parts send them, through a whole environment.
namespace zo_tarvel {
namespace {

using namespace std::string_literals;
using namespace test_support;

constexpr char kRefused[] = "http://127.0.0.1:1/";  // Nobody listens on this port.

// Answers "/bad" with a failure, and repeats the body of any other request.
struct Site : HttpServer {
  Site() {
    Answer("/bad", [](const SeenRequest&) { return ServerAnswer{500, {}, "bad"}; });
  }
};

// What a logical request came to, and on which thread.
struct Result {
  bool success = false, stop = false;
  std::string body, headers, thread;
};
using Results = Mailbox<Result>;

MultipleURLHttpRequest Request(const std::vector<std::string>& urls, Results& results) {
  MultipleURLHttpRequest request;
  for (const std::string& url : urls) request.urls.push_back({"", url});
  request.time_out = request.multiple_time_out = 20'000;
  request.check_callback = [](std::int32_t, std::int32_t code, auto&&...) {
    return MultipleURLHttpRequest::CheckCallbackResult{code == 200, true, false, ""};
  };
  request.result_callback = [&results](bool stop, bool success, const std::string& headers,
                                       const std::string& body) {
    results.Put({success, stop, body, headers, zo_base::GetCurrentThreadInfo()->name});
  };
  return request;
}

TEST(HttpAgentTest, GivesOneResultOnItsThreadWhoeverAsks) {
  const Site site;
  const struct {
    std::vector<std::string> urls;
    bool success, stop;
    std::string body;
  } rows[] = {
      {{kRefused, site.url("/bad"), site.url("/good")}, true, false, "question"},
      {{kRefused, site.url("/bad")}, false, false, "bad"},
      {{}, false, true, ""},
  };
  for (const std::string caller : {"thread of a client", "the same, at once", "task thread"}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(caller + " gets " + row.body);
      Results results;
      AgentEnvironment environment;
      ScopedTaskThread worker;
      worker->Start();
      auto request = Request(row.urls, results);
      request.request_type = 1;
      request.body = "question";
      const bool post = caller == "thread of a client";
      const auto ask = [&] { environment.InvokeHttpRequest(request, post); };
      caller == "task thread" ? worker->PostTask(ask) : ask();
      const Result result = results.Take();
      environment.Exit();
      EXPECT_TRUE(results.TakeAll().empty());
      EXPECT_TRUE(result.success == row.success && result.stop == row.stop);
      EXPECT_EQ(result.body, row.body);
      // Without a URL there is nothing to wait for.
      const bool at_once = row.urls.empty() && caller == "task thread";
      EXPECT_EQ(result.thread, at_once ? "worker" : "http_agent_work");
    }
  }
}

TEST(HttpAgentTest, TranslatesARequestAndItsAnswerForTheTransport) {
  const std::string ip = "127.0.0.1";
  const struct {
    std::string authority, host, header;
    std::string seen_host, seen_header;
    std::string answer, body;
  } rows[] = {
      {ip, "a.example", "X-One:1", "a.example", "1", "abc", "abc"},
      {ip, "", "X-One:1:2:3", ip, "3", "ab\0c"s, "ab"},  // As C code would read it.
      {"localhost", "a.example", "X-One", "a.example", "", "\0ab"s, "\0ab"s},
      {"localhost", "a.example", "hOsT:b.example", "b.example", "", "", ""},
      {ip, "", "X-Two:2\r\nX-One", ip, "", "abc", "abc"},
  };
  HttpServer server;
  AgentEnvironment environment;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.authority + " for '" + row.host + "' with '" + row.header + "'");
    server.Answer("/", [&](const SeenRequest&) {
      return ServerAnswer{200, {{"B", " 2"}}, row.answer};
    });
    Results results;
    auto request = Request({}, results);
    request.urls = {
        {row.host, "http://" + row.authority + ":" + std::to_string(server.port()) + "/"}};
    request.headers = {row.header};
    environment.InvokeHttpRequest(request, true);
    const Result result = results.Take();
    const SeenRequest seen = server.requests().back();
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(seen.header("Host"), row.seen_host);
    EXPECT_EQ(seen.header("X-One"), row.seen_header);
    EXPECT_EQ(result.headers, "B:2\r\nContent-Length:" + std::to_string(row.answer.size()));
    EXPECT_EQ(result.body, row.body);
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
        request.multiple_time_out = 20;
        environment.InvokeHttpRequest(request, true);
      }
      GetTarvelObject(1)->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
    });
  }
  threads.clear();
  for (std::size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(results[i].Take().success, i % 4 < 2 || i / 4 % 4 < 2) << i;
  }
  environment.Exit();
  for (Results& one : results) EXPECT_TRUE(one.TakeAll().empty());
}

TEST(ExitTest, InOrDuringACallbackIsTheEnd) {
  RawServer silent(NeverAnswers());
  HttpServer good;
  for (const bool in_callback : {true, false}) {
    for (const std::string where : {"check of a good answer", "check of a bad one", "result"}) {
      SCOPED_TRACE(where + (in_callback ? " exits" : " runs meanwhile"));
      Results results, later;
      std::atomic<int> checks{0};
      Event entered;
      AgentEnvironment environment;
      const auto act = [&] {
        if (in_callback) {
          ExitTarvelEnvironment(1);
          environment.WasExited();
        }
        entered.Set();
        // An exit on another thread waits for the callback.
        EXPECT_TRUE(in_callback || RecordedLog::Await("stop http agent begin"));
      };
      auto request = Request(
          {where == "check of a bad one" ? kRefused : good.url("/"), silent.url("/")}, results);
      request.check_callback = [&](std::int32_t, std::int32_t code, auto&&...) {
        if (checks++ == 0 && where != "result") act();
        return MultipleURLHttpRequest::CheckCallbackResult{code == 200, true, false, ""};
      };
      request.result_callback = [&, then = request.result_callback](auto&&... outcome) {
        if (where == "result") act();
        then(outcome...);
      };
      // All but one wait behind the callback.
      for (int i = 0; i < 20; ++i) environment.InvokeHttpRequest(request, true);
      EXPECT_TRUE(entered.Await());
      EXPECT_LT(MillisecondsOf([&] { environment.Exit(); }), 5'000);
      EXPECT_EQ(GetTarvelObject(1), nullptr);
      const int checked = checks;
      if (!in_callback) results.TakeAll();
      // Nothing comes after the exit, also in a new environment in which a request is answered.
      AgentEnvironment next;
      next.InvokeHttpRequest(Request({good.url("/")}, later), true);
      EXPECT_TRUE(later.Take().success);
      next.Exit();
      EXPECT_EQ(results.TakeAll().size(), in_callback && where == "result" ? 1U : 0U);
      EXPECT_EQ(checks, checked);
    }
  }
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
    Results& awaited = results[round % 20];
    if (round % 2 == 1) awaited.Put(awaited.Take());
    EXPECT_LT(MillisecondsOf([&] { environment.Exit(); }), 5'000);
    for (Results& one : results) EXPECT_LE(one.TakeAll().size(), 1U);
  }
}

// Routes everything through the loopback interface: to an address of this host, or to one that the
// system takes for another host's.
bool AddWayOut(bool with_address) {
  ifreq alias{};
  std::strcpy(alias.ifr_name, with_address ? "lo:1" : "lo");
  const sockaddr_in address{AF_INET, 0, {inet_addr("10.1.2.3")}, {}};
  std::memcpy(&alias.ifr_addr, &address, sizeof address);
  rtentry route{};
  route.rt_dst.sa_family = route.rt_genmask.sa_family = AF_INET;
  route.rt_flags = RTF_UP;
  route.rt_dev = alias.ifr_name;
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int result = with_address ? ioctl(fd, SIOCSIFADDR, &alias) : ioctl(fd, SIOCADDRT, &route);
  close(fd);
  return result == 0;
}

TEST(HttpAgentNetworkTest, PostedRequestsNeedAWayOutOfThisHost) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    EXPECT_FALSE(IsInternetReachable());
    EXPECT_TRUE(AddWayOut(false));  // It ends in this host.
    HttpServer server;
    const std::string url = server.url("/");
    const std::string cancelled =
        "[multiple]Request cancel,internet connected is false url list:\r\n --" + url + "\r\n";
    const struct {
      bool way_out, needed, posted, sent;
    } rows[] = {{false, true, true, false},
                {false, true, false, true},
                {false, false, true, true},
                {true, true, true, true}};
    for (const auto& row : rows) {
      SCOPED_TRACE(&row - rows);
      EXPECT_TRUE(!row.way_out || AddWayOut(true));
      EXPECT_EQ(IsInternetReachable(), row.way_out);
      Results results;
      auto settings = AgentSettings();
      settings.try_http_request_on_netunav = row.needed ? -1 : 0;
      AgentEnvironment environment(settings);
      auto request = Request({url}, results);
      environment.InvokeHttpRequest(request, row.posted);
      const Result result = results.Take();
      request.result_callback = nullptr;
      environment.InvokeHttpRequest(request, row.posted);
      environment.Exit();
      EXPECT_EQ(RecordedLog::Texts("[multiple]Request cancel"),
                std::vector<std::string>(row.needed && !row.way_out ? 2 : 0, cancelled));
      EXPECT_TRUE(results.TakeAll().empty());
      EXPECT_TRUE(result.success == row.sent && result.stop == !row.sent);
    }
    return 0;
  });
}

// What the functions below were given, each with the name of the function.
Mailbox<std::pair<std::string, TarvelExceptionData>> records;

void Take(const std::string& function, const TarvelExceptionData& data) {
  EXPECT_EQ(zo_base::GetCurrentThreadInfo()->name, "http_agent_work");
  records.Put({function, data});
}
void First(const TarvelExceptionData& data) { Take("first", data); }
void Second(const TarvelExceptionData& data) { Take("second", data); }
void Exits(const TarvelExceptionData& data) {
  ExitTarvelEnvironment(1);
  Take("exits", data);
}

std::string TakeRecord() {
  const auto [function, data] = records.Take();
  return function + ":" + data.process_id;
}

void Report(ExceptionDataDetails details) {
  GetConfig()->GetExceptionReporter()->ReportException(
      std::make_shared<ExceptionDataDetails>(std::move(details)));
}
void Report(const std::string& process_id) { Report({process_id, 1, 0, 0, 1, 0, {{}}}); }

TEST(ExceptionRecordsTest, CarryAllFields) {
  AgentEnvironment environment;
  SetExceptionDataReporter(First);
  Report({"a\"b", 2, 1LL << 40, 1LL << 41, 3, 4, {{5, "target", 6, "what", "more"}, {}}});
  const TarvelExceptionData data = records.Take().second;
  EXPECT_EQ(data.user_info + data.reserved_info, "");  // The JSON never has them.
  EXPECT_EQ(TarvelExceptionDataToJsonString(data),
            R"({"action": 2, "duration": 1099511627776, "exception_service": 4, )"
            R"("extension": [{"code": 6, "context": "more", "description": "what", )"
            R"("operation_type": 5, "target": "target"}, {"code": 0, "context": "", )"
            R"("description": "", "operation_type": 0, "target": ""}], )"
            R"("process_id": "a\"b", "start_time": 2199023255552, "state": 3})");
}

TEST(ExceptionRecordsTest, EndWithTheirEnvironmentAlsoWhenTheirFunctionExits) {
  SetExceptionDataReporter(First);  // Before the start: not remembered.
  {
    AgentEnvironment environment;
    for (const char* id : {"1", "2", "3"}) Report(id);
    SetExceptionDataReporter(Exits);
    EXPECT_EQ(TakeRecord(), "exits:1");
    environment.WasExited();
  }
  AgentEnvironment environment;
  Report("4");
  SetExceptionDataReporter(Second);
  EXPECT_EQ(TakeRecord(), "second:4");
}

TEST(ExceptionRecordsTest, GoOnceAndInOrderToTheFirstFunction) {
  constexpr std::size_t kThreads = 8, kEach = 200;
  AgentEnvironment environment;
  Report({"without a failure", 1, 0, 0, 1, 0, {}});
  SetExceptionDataReporter(nullptr);
  std::vector<std::jthread> threads;
  for (std::size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (std::size_t i = 0; i < kEach; ++i) {
        Report(std::to_string(t) + "-" + std::to_string(i));
        if (i == kEach / 2) SetExceptionDataReporter(First);
      }
    });
  }
  threads.clear();
  SetExceptionDataReporter(Second);
  Report("8-0");
  std::map<std::string, int> next;  // Those of one thread keep their order.
  for (std::size_t i = 0; i < kThreads * kEach + 1; ++i) {
    const std::string record = TakeRecord();
    const auto dash = record.find('-');
    EXPECT_TRUE(record.starts_with("first:"));
    EXPECT_EQ(record.substr(dash + 1), std::to_string(next[record.substr(0, dash)]++));
  }
  environment.Exit();
  EXPECT_TRUE(records.TakeAll().empty());
}

}  // namespace
}  // namespace zo_tarvel
