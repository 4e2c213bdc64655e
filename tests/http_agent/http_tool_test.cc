#include "tarvel/http_agent/http_tools/http_tool.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "base/thread_info.h"
#include "network/text.h"
#include "tests/http_agent/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_tarvel {
namespace {

using namespace std::string_literals;
using namespace test_support;
using WQBASE::network::ReplaceAll;

class HttpToolTest : public testing::Test {
 protected:
  // What the callback was told, and where.
  struct Result {
    std::int32_t code = -1;
    std::string headers, body, thread;
  };

  HttpToolTest() { caller_->Start(); }

  HttpRequest Request(const std::string& url, Event& done) {
    HttpRequest request;
    request.url = url;
    request.time_out = 20'000;
    request.callback = [this, &done](std::int32_t code, const std::string& headers,
                                     const std::string& body) {
      result_ = {code, headers, body, zo_base::GetCurrentThreadInfo()->name};
      done.Set();
      return true;
    };
    return request;
  }
  Result Fetch(const HttpRequest& request, Event& done) {
    caller_->PostTask([request] { HttpTool::PostRequest(request); });
    EXPECT_TRUE(done.Await());
    return result_;
  }

  AgentEnvironment environment_;
  Result result_;
  ScopedTaskThread caller_;
};

// "PORT" in a URL stands for that of the server.
TEST_F(HttpToolTest, TranslatesARequestByTheTable) {
  const std::string ip = "127.0.0.1";
  const struct {
    std::string url, host, header;
    std::int32_t type;
    std::string seen_host, seen_header;
    bool is_ip;
  } rows[] = {
      {"http://127.0.0.1:PORT/?b=c", "a.example", "", 0, "a.example", "", true},
      {"http://127.0.0.1:PORT/", "", "", 1, ip, "", true},
      {"http://localhost:PORT/", "a.example", "", 7, "a.example", "", false},
      {"http://localhost:PORT/", "a.example", "hOsT:b.example", 0, "b.example", "", false},
      {"http://127.0.0.1:PORT/", "", "X-One:1:2:3", 0, ip, "3", true},
      {"http://127.0.0.1:PORT/", "", "X-One", 0, ip, "", true},
      {"http://127.0.0.1:PORT/", "", "X-One:", 0, ip, "", true},
      {"http://127.0.0.1:PORT/", "", "X-Two:2\r\nX-One", 0, ip, "", true},
  };
  HttpServer server;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.url + " for '" + row.host + "' with '" + row.header + "'");
    RecordedLog::Clear();
    Event done;
    HttpRequest request = Request(ReplaceAll(row.url, "PORT", std::to_string(server.port())), done);
    request.host = row.host;
    request.type = row.type;
    request.headers = {row.header};
    request.body = "a body";
    EXPECT_EQ(Fetch(request, done).code, 200) << result_.body;
    const SeenRequest seen = server.requests().back();
    EXPECT_EQ(seen.method, row.type == 0 ? "GET" : "POST");
    EXPECT_EQ(seen.header("Host"), row.seen_host);
    EXPECT_EQ(seen.header("X-One"), row.seen_header);
    EXPECT_EQ(seen.body, row.type == 0 ? "" : "a body");
    EXPECT_THAT(RecordedLog::Texts("[http tool]").at(0),
                testing::HasSubstr("host_is_ip:"s + (row.is_ip ? "true" : "false")));
  }
}

TEST_F(HttpToolTest, TranslatesTheResponseBack) {
  const struct {
    const char* name;
    std::string answer;
    std::int32_t code;
    std::string headers, body;
    bool is_error_text;
  } rows[] = {
      {"headers", HttpAnswer("200 OK", "abc", "B: 2\r\nA:1:1\r\n"), 200,
       "B:2\r\nA:1:1\r\nContent-Length:3", "abc", false},
      {"body of a bad status", HttpAnswer("404 None", "abc"), 404, "Content-Length:3", "abc",
       false},
      {"text up to NUL", HttpAnswer("200 OK", "ab\0c"s), 200, "Content-Length:4", "ab", false},
      {"bytes when NUL comes first", HttpAnswer("200 OK", "\0abc"s), 200, "Content-Length:4",
       "\0abc"s, false},
      {"error of a bad status", HttpAnswer("500 Oops", "\0abc"s), 500, "Content-Length:4", "",
       true},
      {"error of no answer", "", 0, "", "", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RawServer server(AnswerWith(row.answer));
    Event done;
    const Result result = Fetch(Request(server.url("/"), done), done);
    EXPECT_EQ(result.code, row.code);
    EXPECT_EQ(result.headers, row.headers);
    if (row.is_error_text) {
      EXPECT_NE(result.body.c_str()[0], '\0');
    } else {
      EXPECT_EQ(result.body, row.body);
    }
  }
}

TEST_F(HttpToolTest, CallsBackOnTheCallersThreadWhileThatLives) {
  Event release, of_living, of_gone;
  HttpServer server;
  server.Answer("/held", [&](const SeenRequest&) {
    return ServerAnswer{release.Await() ? 200 : 500, {}, ""};
  });
  EXPECT_EQ(Fetch(Request(server.url("/"), of_living), of_living).thread, "worker");
  const HttpRequest held = Request(server.url("/held"), of_gone);
  caller_->PostTask([held] { HttpTool::PostRequest(held); });
  EXPECT_TRUE(caller_.RunAllPosted());
  caller_->Stop();
  caller_.Destroy();
  release.Set();
  EXPECT_TRUE(of_gone.Await());
  EXPECT_EQ(result_.thread, "tarvel_http_client");
}

}  // namespace
}  // namespace zo_tarvel
