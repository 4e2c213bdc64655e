#include "tarvel/http_agent/http_tools/http_tool.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/thread_info.h"
#include "network/curl_requestor.h"
#include "network/text.h"
#include "tests/http_agent/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_tarvel {
namespace {

using namespace std::string_literals;
using namespace test_support;
using WQBASE::network::CurlRequestor;
using WQBASE::network::HttpClientEx;
using WQBASE::network::ReplaceAll;

constexpr char kLogHead[] = "[http tool]Post request to http lib info:\r\n";

CertificateAuthority& Authority() {
  static CertificateAuthority authority;
  return authority;
}

// What the callback was told, and where.
struct Result {
  std::int32_t code = -1;
  std::string headers;
  std::string body;
  std::string thread;
};

// A client that trusts the tests' authority, in the place of the environment's.
class HttpToolTest : public testing::Test {
 protected:
  HttpToolTest() {
    client_ = std::make_shared<HttpClientEx>([](HttpClientEx&) {
      return CurlRequestor::Create({Authority().trust_store(), false});
    });
    client_->Connect<>(zo_base::SIG_InternalBegin, [raw = client_.get()] { raw->init(); });
    client_->Start();
    SetHttpClientGetter([] { return client_; });
    caller_->Start();
  }
  ~HttpToolTest() override {
    SetHttpClientGetter(GetHttpClient);
    client_->Stop();
    client_.reset();
  }

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

  inline static std::shared_ptr<HttpClientEx> client_;
  AgentEnvironment environment_;
  Result result_;
  ScopedTaskThread caller_;
};

// "SERVER" in a URL stands for the address and port of the server, "PORT" for its port.
struct Translation {
  const char* name;
  std::string url;
  std::string host;
  std::int32_t type;
  std::string header;
  // What the server sees, and what the log says between the time-out and the headers.
  std::string seen_host;
  std::string seen_sni;
  std::string seen_header;
  std::string log;
  std::string logged_headers;
};

std::string Facts(const std::string& host, const std::string& is_ip, const std::string& is_https) {
  return "host_from tarvel:" + host + "\r\nhost_is_ip:" + is_ip + "\r\nis_https_url:" + is_https +
         "\r\n";
}
std::string OfIP(const std::string& host, bool tls) {
  return Facts(host, "true", tls ? "true" : "false") +
         "host_is_ip is true && host not empty set request host and port \r\n{\r\n"
         "    call req->setIP:127.0.0.1\r\n    call req->setPort:PORT\r\n    call req->setHost:" +
         host + "\r\n}\r\n" + (tls ? "call req->setSNI:true\r\n" : "");
}
std::string OfName(const std::string& host, bool tls) {
  return Facts(host, "false", tls ? "true" : "false");
}

const std::string kA = "a.example";
const std::string kIP = "127.0.0.1";
const std::string kHostA = "    Host:a.example\r\n";
const std::string kHostIP = "    Host:127.0.0.1\r\n";

const Translation kTranslations[] = {
    {"IPForAName", "http://SERVER/?b=c", kA, 0, "", kA, "", "", OfIP(kA, false), kHostA},
    {"TlsNamesTheName", "https://SERVER/", kA, 1, "", kA, kA, "", OfIP(kA, true), kHostA},
    {"IPForItself", "https://SERVER/", "", 0, "", kIP, "-", "", OfIP(kIP, true), kHostIP},
    {"Name", "https://localhost:PORT/", "", 0, "", "localhost", "localhost", "",
     OfName("localhost", true), "    Host:localhost\r\n"},
    {"NameForAName", "http://localhost:PORT/", kA, 1, "", kA, "", "", OfName(kA, false), kHostA},
    {"OwnHost", "http://SERVER/", kA, 7, "hOsT:b.example", "b.example", "", "", OfIP(kA, false),
     "    hOsT:b.example\r\n"},
    {"Header", "http://SERVER/", "", 0, "X-One:1", kIP, "", "1", OfIP(kIP, false),
     "    X-One:1\r\n" + kHostIP},
    {"EndOfAHeader", "http://SERVER/", "", 0, "X-One:1:2:3", kIP, "", "3", OfIP(kIP, false),
     "    X-One:3\r\n" + kHostIP},
    {"NoColon", "http://SERVER/", "", 0, "X-One", kIP, "", "", OfIP(kIP, false), kHostIP},
    {"NoValue", "http://SERVER/", "", 0, "X-One:", kIP, "", "", OfIP(kIP, false), kHostIP},
    {"LineEnd", "http://SERVER/", "", 0, "X-Two:2\r\nX-One", kIP, "", "", OfIP(kIP, false),
     "    X-Two:2\r\nX-One\r\n" + kHostIP},
};

TEST_F(HttpToolTest, TranslatesARequestByTheTable) {
  HttpServer plain;
  NginxServer tls({.listeners = {{kIP, Authority().Issue({kA, kIP})}},
                   .server_text = "location / { return 200; }"});
  std::size_t over_tls = 0;
  for (auto row : kTranslations) {
    SCOPED_TRACE(row.name);
    const bool is_tls = row.url.starts_with("https");
    const std::string port = std::to_string(is_tls ? tls.port() : plain.port());
    for (std::string* text : {&row.url, &row.log}) {
      *text = ReplaceAll(ReplaceAll(*text, "SERVER", kIP + ":" + port), "PORT", port);
    }
    RecordedLog::Clear();
    Event done;
    HttpRequest request = Request(row.url, done);
    request.host = row.host;
    request.type = row.type;
    request.headers = {row.header};
    request.body = "a body";
    EXPECT_EQ(Fetch(request, done).code, 200) << result_.body;
    const std::string method = row.type == 0 ? "GET" : "POST";
    EXPECT_THAT(RecordedLog::Texts("[http tool]"),
                testing::ElementsAre(kLogHead + "url:"s + row.url + "\r\ntype:" + method +
                                     "\r\ntime_out:20000\r\n" + row.log + "Heads:\r\n" +
                                     row.logged_headers));
    if (is_tls) {
      std::string log = tls.AccessLog(++over_tls);
      log.erase(0, log.rfind('\n', log.size() - 2) + 1);
      EXPECT_THAT(log, testing::MatchesRegex("HTTP/1.1 .* " + row.seen_host + " " + row.seen_sni +
                                             " [0-9]+ " + method + " /\n"));
      continue;
    }
    const SeenRequest seen = plain.requests().back();
    EXPECT_EQ(seen.method, method);
    EXPECT_EQ(seen.header("Host"), row.seen_host);
    EXPECT_EQ(seen.header("X-One"), row.seen_header);
    EXPECT_EQ(seen.body, row.type == 0 ? "" : "a body");
  }
}

TEST_F(HttpToolTest, TakesThePortOfTheSchemeWhenTheUrlNamesNone) {
  const struct {
    std::string url;
    std::string lines;
  } rows[] = {
      {"http://127.0.0.1/", "    call req->setIP:127.0.0.1\r\n    call req->setPort:80\r\n"},
      {"https://127.0.0.1:0/", "    call req->setIP:127.0.0.1\r\n    call req->setPort:443\r\n"},
      {"http://[::1]/", "    call req->setIP:[::1]\r\n    call req->setPort:80\r\n"},
  };
  for (const auto& row : rows) {
    RecordedLog::Clear();
    HttpRequest request;
    request.url = row.url;
    request.time_out = 1;
    HttpTool::PostRequest(request);
    EXPECT_THAT(RecordedLog::Texts(kLogHead), testing::ElementsAre(testing::HasSubstr(row.lines)));
  }
}

TEST_F(HttpToolTest, TranslatesTheResponseBack) {
  const struct {
    const char* name;
    std::string answer;
    std::int32_t code;
    std::string headers;
    std::string body;
    bool is_error_text;
  } rows[] = {
      {"Headers", HttpAnswer("200 OK", "abc", "B: 2\r\nA:1:1\r\n"), 200,
       "B:2\r\nA:1:1\r\nContent-Length:3", "abc", false},
      {"BodyOfABadStatus", HttpAnswer("404 None", "abc"), 404, "Content-Length:3", "abc", false},
      {"TextUpToNul", HttpAnswer("200 OK", "ab\0c"s), 200, "Content-Length:4", "ab", false},
      {"BytesWhenNulComesFirst", HttpAnswer("200 OK", "\0abc"s), 200, "Content-Length:4", "\0abc"s,
       false},
      {"NoBody", HttpAnswer("200 OK", ""), 200, "Content-Length:0", "", false},
      {"ErrorOfABadStatus", HttpAnswer("500 Oops", "\0abc"s), 500, "Content-Length:4", "", true},
      {"ErrorOfNoAnswer", "", 0, "", "", true},
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
  Event release;
  HttpServer server;
  server.Answer("/held", [&](const SeenRequest&) {
    return ServerAnswer{release.Await() ? 200 : 500, {}, ""};
  });
  Event of_living, of_none, of_gone;
  EXPECT_EQ(Fetch(Request(server.url("/"), of_living), of_living).thread, "worker");
  HttpTool::PostRequest(Request(server.url("/"), of_none));  // From this thread.
  EXPECT_TRUE(of_none.Await());
  EXPECT_EQ(result_.thread, "tarvel_http_client");
  const HttpRequest held = Request(server.url("/held"), of_gone);
  caller_->PostTask([held] { HttpTool::PostRequest(held); });
  EXPECT_TRUE(caller_.RunAllPosted());
  result_ = {};
  caller_->Stop();
  caller_.Destroy();
  release.Set();
  EXPECT_TRUE(of_gone.Await());
  EXPECT_EQ(result_.thread, "tarvel_http_client");
}

}  // namespace
}  // namespace zo_tarvel
