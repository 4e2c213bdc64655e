#include "tarvel/http_agent/http_tools/http_tool.h"

#include <gmock/gmock.h>

#include <string>

#include "base/thread_info.h"
#include "tests/http_agent/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_tarvel {
namespace {

using namespace std::string_literals;
using namespace test_support;

class HttpToolTest : public testing::Test {
 protected:
  // Sends from a thread with tasks, where the callback is to come.
  void Fetch(HttpRequest request) {
    Event done;
    request.time_out = 20'000;
    request.callback = [&](std::int32_t code, const std::string& headers, const std::string& body) {
      EXPECT_EQ(zo_base::GetCurrentThreadInfo()->name, "worker");
      code_ = code, headers_ = headers, body_ = body;
      done.Set();
      return true;
    };
    ScopedTaskThread caller;
    caller->Start();
    caller->PostTask([request] { HttpTool::PostRequest(request); });
    EXPECT_TRUE(done.Await());
  }

  AgentEnvironment environment_;
  std::int32_t code_ = -1;
  std::string headers_, body_;
};

TEST_F(HttpToolTest, TranslatesARequestByTheTable) {
  const std::string ip = "127.0.0.1";
  const struct {
    std::string authority, host, header;
    std::int32_t type;
    std::string seen_host, seen_header;
  } rows[] = {
      {ip, "a.example", "", 0, "a.example", ""},
      {ip, "", "", 1, ip, ""},
      {"localhost", "a.example", "", 7, "a.example", ""},
      {"localhost", "a.example", "hOsT:b.example", 0, "b.example", ""},
      {ip, "", "X-One:1:2:3", 0, ip, "3"},
      {ip, "", "X-One", 0, ip, ""},
      {ip, "", "X-Two:2\r\nX-One", 0, ip, ""},
  };
  HttpServer server;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.authority + " for '" + row.host + "' with '" + row.header + "'");
    HttpRequest request;
    request.url = "http://" + row.authority + ":" + std::to_string(server.port()) + "/?b=c";
    request.host = row.host;
    request.type = row.type;
    request.headers = {row.header};
    request.body = "a body";
    Fetch(request);
    EXPECT_EQ(code_, 200);
    const SeenRequest seen = server.requests().back();
    EXPECT_EQ(seen.method, row.type == 0 ? "GET" : "POST");
    EXPECT_EQ(seen.header("Host"), row.seen_host);
    EXPECT_EQ(seen.header("X-One"), row.seen_header);
    EXPECT_EQ(seen.body, row.type == 0 ? "" : "a body");
  }
}

TEST_F(HttpToolTest, TranslatesTheResponseBack) {
  const struct {
    const char* name;
    std::string answer;
    std::int32_t code;
    std::string headers, body;
  } rows[] = {
      {"headers", HttpAnswer("200 OK", "abc", "B: 2\r\nA:1:1\r\n"), 200,
       "B:2\r\nA:1:1\r\nContent-Length:3", "abc"},
      {"body of a bad status", HttpAnswer("404 No", "abc"), 404, "Content-Length:3", "abc"},
      {"text up to NUL", HttpAnswer("200 OK", "ab\0c"s), 200, "Content-Length:4", "ab"},
      {"bytes when NUL is first", HttpAnswer("200 OK", "\0ab"s), 200, "Content-Length:3", "\0ab"s},
      {"error text", HttpAnswer("500 Oops", ""), 500, "Content-Length:0", "error"},
      {"error text without an answer", "", 0, "", "error"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RawServer server(AnswerWith(row.answer));
    HttpRequest request;
    request.url = server.url("/");
    Fetch(request);
    EXPECT_EQ(code_, row.code);
    EXPECT_EQ(headers_, row.headers);
    if (row.body == "error") {
      EXPECT_NE(body_, "");
    } else {
      EXPECT_EQ(body_, row.body);
    }
  }
}

}  // namespace
}  // namespace zo_tarvel
