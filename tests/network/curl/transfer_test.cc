#include <gmock/gmock.h>
#include <linux/filter.h>
#include <sys/socket.h>

#include <string>
#include <utility>

#include "base/text/strings.h"
#include "network/curl/answer_collector.h"
#include "tests/support/http_server.h"
#include "tests/support/raw_server.h"
#include "tests/support/transport.h"

namespace {

using namespace std::string_literals;
using namespace test_support;
using namespace WQBASE::network;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using zo_base::ReplaceAll;

class TransferTest : public testing::Test {
 protected:
  HttpServer server_;
  Transport transport_;
};

TEST_F(TransferTest, SendsAllButHeadersThatWouldBreakTheMessage) {
  const struct {
    std::int32_t method;
    std::string verb, body;
  } rows[] = {{kMethodGet, "GET", "dropped"},
              {kMethodPost, "POST", ""},
              {kMethodDelete, "DELETE", "text"},
              {kMethodPost, "POST", "a\0\r\nb"s},
              {-1, "POST", "text"},
              {kMethodPost, "POST", std::string(3'000'000, 'x')}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.verb + " of " + std::to_string(row.body.size()));
    const auto request = Get(server_.url("/seen"));
    request->method = row.method;
    request->body = Bytes(row.body);
    request->headers = {{"X-One", "1"},
                        {"Host", "a.example"},
                        {"X-Split", "v\r\nX-Evil: 1"},
                        {"X-Nul", "v\0w"s},
                        {"X Evil", "1"},
                        {"X-Evil: 1\r\nX", "1"},
                        {"Content-Length", "7"},
                        {"transfer-encoding", "chunked"},
                        {"x-one", "2"},
                        {"X-Empty", " "},
                        {"X-Two", "a: b;c"}};
    EXPECT_EQ(transport_.Fetch(request)->status, 200);
    SeenRequest seen = server_.requests().back();
    EXPECT_EQ(seen.method, row.verb);
    const bool has_body = row.method != kMethodGet;
    EXPECT_EQ(seen.body, has_body ? row.body : "");
    EXPECT_EQ(seen.header("Content-Length"), has_body ? std::to_string(row.body.size()) : "");
    EXPECT_THAT(seen.header("Accept-Encoding"), HasSubstr("gzip"));
    EXPECT_EQ(seen.header("Host"), "a.example");
    std::erase_if(seen.headers, [](const auto& header) { return !header.first.starts_with("X"); });
    EXPECT_THAT(seen.headers,
                ElementsAre(Pair("X-One", "2"), Pair("X-Empty", ""), Pair("X-Two", "a: b;c")));
    request->headers.clear();
    request->sni = true;
    request->host = "a.example\r\nX-Evil: 1";
    EXPECT_EQ(transport_.Fetch(request)->status, 200);
    EXPECT_EQ(server_.requests().back().header("X-Evil"), "");
  }
}

TEST_F(TransferTest, CompletesARequestThatItCannotSend) {
  EXPECT_FALSE(transport_.Fetch(std::shared_ptr<HttpRequest>())->success);
  const std::string port = ":" + std::to_string(server_.port());
  for (const std::string& url :
       {""s, "a.example"s, "http://"s, "file:///etc/hosts"s, "http://127.0.0.1\0.example/"s,
        "http://127.0.0.1/\r\nX: 1"s, "http://127%2e0.0.1" + port, "http://[::1%25lo]" + port,
        "http://x.example\\@127.0.0.1" + port, "http://\uff11\uff12\uff17.1" + port}) {
    const auto response = transport_.Fetch(url);
    EXPECT_EQ(response->status, 0) << url;
    EXPECT_THAT(response->error_text, HasSubstr(url.ends_with(port) ? "host in the URL" : " "));
  }
}

TEST_F(TransferTest, FollowsRedirectsAsBrowsersDo) {
  HttpServer other("127.0.0.2");
  const struct {
    std::string name;
    int status;
    std::int32_t method;
    std::string location;  // "{server}" and "{other}" are replaced by the servers' addresses.
    std::string end = {};  // "verb body path Host" of the last request; empty when not followed.
  } rows[] = {
      {"post 301", 301, kMethodPost, "{server}/end", "GET  /end 127.0.0.1"},
      {"post 302", 302, kMethodPost, "/end", "GET  /end 127.0.0.1"},
      {"post 303", 303, kMethodPost, "end?q=1", "GET  /end?q=1 127.0.0.1"},
      {"post 307", 307, kMethodPost, "/end", "POST text /end 127.0.0.1"},
      {"post 308", 308, kMethodPost, "/end", "POST text /end 127.0.0.1"},
      {"put 302", 302, kMethodPut, "/end", "PUT text /end 127.0.0.1"},
      {"put 303", 303, kMethodPut, "/end", "GET  /end 127.0.0.1"},
      {"get 302 elsewhere", 302, kMethodGet, "{other}/end", "GET  /end 127.0.0.2"},
      {"blank", 302, kMethodGet, "{server}/the end", "GET  /the%20end 127.0.0.1"},
      {"empty first", 302, kMethodGet, "\r\nLocation: /end\r\nLocation: /", "GET  /end 127.0.0.1"},
      {"ambiguous", 302, kMethodGet, "http://x.example\\@" + server_.url("/").substr(7)},
      {"own url", 302, kMethodGet, "{server}/start"},
      {"no location", 302, kMethodGet, ""},
      {"not a redirect", 300, kMethodGet, "/end"},
      {"file", 302, kMethodGet, "file:///etc/hosts"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server_.Answer("/start", [&](const SeenRequest&) {
      const std::string to = ReplaceAll(row.location, "{server}", server_.url(""));
      return ServerAnswer{
          row.status, {{"Location", ReplaceAll(to, "{other}", other.url(""))}}, "redirected"};
    });
    const auto request = Get(server_.url("/start"));
    request->method = row.method;
    request->body = Bytes("text");
    request->headers = {{"Host", "a.example"}, {"X-Kept", "1"}, {"Authorization", "secret"}};
    const auto response = transport_.Fetch(request);
    if (row.end.empty()) {
      EXPECT_EQ(response->status, row.status);
      EXPECT_EQ(response->body_text, "redirected");
      EXPECT_NE(response->error_text, "");
      continue;
    }
    EXPECT_EQ(response->status, 200);
    const bool elsewhere = row.location.starts_with("{other}");
    const SeenRequest seen = (elsewhere ? other : server_).requests().back();
    EXPECT_EQ(seen.method + " " + seen.body + " " + seen.target + " " + seen.header("Host"),
              row.end);
    EXPECT_EQ(seen.header("X-Kept"), "1");
    EXPECT_EQ(seen.header("Authorization"), elsewhere ? "" : "secret");
  }
  EXPECT_THAT(other.requests(), testing::SizeIs(1));
  other.Answer("/", [](auto&&) { return ServerAnswer{302, {{"Location", "/"}}}; });
  EXPECT_THAT(transport_.Fetch(other.url("/"))->error_text, HasSubstr("(20)"));
  EXPECT_THAT(other.requests(), testing::SizeIs(1 + 1 + 20));

  RawServer silent(NeverAnswers());
  server_.Answer("/start", [&](auto&&) {
    return ServerAnswer{302, {{"Location", silent.url("/")}}};
  });
  EXPECT_THAT(transport_.Fetch(Get(server_.url("/start"), 1'000))->error_text,
              HasSubstr("timed out"));
}

const std::string kGood = HttpAnswer("200 OK", "good");

// A POST may have been carried out, so it isn't sent again.
TEST(ConnectionTest, IsReplacedUnseenUnlessForAPost) {
  for (const bool has_closed : {true, false}) {
    RawServer server([has_closed](RawConnection& connection) {
      connection.ReadRequest();
      connection.Send(kGood);
      if (!has_closed && connection.ReadRequest().starts_with("GET")) connection.Reset();
    });
    Transport transport;
    for (int i = 1; i <= 5; ++i) EXPECT_EQ(transport.Fetch(server.url("/"))->body_text, "good");
    EXPECT_EQ(server.connections(), 5);
    if (has_closed) continue;
    const auto post = Get(server.url("/"));
    post->method = kMethodPost;
    EXPECT_THAT(transport.Fetch(post)->error_text, HasSubstr("not to be repeated"));
  }
}

// A router may have forgotten all of its connections.
TEST(ConnectionTest, TakesTheOthersWithItIfItFellSilent) {
  HttpServer other;
  const ListeningSocket cut_off("127.0.0.1");
  sock_filter drop_all[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
  const sock_fprog filter{1, drop_all};
  EXPECT_EQ(setsockopt(cut_off.fd(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter), 0);
  RawServer never(NeverAnswers());
  RawServer once(AnswersOnce(kGood));
  Transport transport;
  EXPECT_TRUE(transport.Fetch(once.url("/"))->success);
  EXPECT_TRUE(transport.Fetch(other.url("/"))->success);
  for (const std::string& url :
       {UrlOf("http", "127.0.0.1", cut_off.port(), "/"),
        UrlOf("https", "127.0.0.1", never.port(), "/"), never.url("/"), once.url("/")}) {
    EXPECT_EQ(other.connections(), 1);
    EXPECT_THAT(transport.Fetch(Get(url, 200))->error_text, HasSubstr("timed out")) << url;
    EXPECT_TRUE(transport.Fetch(other.url("/"))->success);
  }
  EXPECT_EQ(once.connections(), 1);
  EXPECT_EQ(other.connections(), 2);
}

std::string AnswerOf(const std::string& headers, const std::string& body) {
  return HttpAnswer("200 OK", body, headers);
}

constexpr char kGzip[] = "Content-Encoding: identity,, gzip\r\n";
const std::string kGzippedGood =
    "\x1f\x8b\x08\0\0\0\0\0\x02\x03K\xcf\xcfO\x01\0\x92N\x84l\x04\0\0\0"s;
// 64 MiB of zeros, by the brotli library's encoder at quality 9 with a window of 16 MiB.
const std::string kBomb =
    "\xcf\xff\xff\x7f\0$\0\xe2\xb1@r\xef\xff\xf9\xff\xff\x0f\x80\x04@"
    "\x1c\x16\x80\xee\xfd\x3f\xff\xff"
    "\xff\x01\x90\0\x88\xc3\x02\xd0\xbd\xff\xcf\xff\xff\x7f\0\x12\0qX\0\xba\xf7\xff"s;
constexpr char kEndless[] = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n";

// Sends `begin`, and then `block` as fast as the peer reads or after each interval. Without a block
// it closes the connection, with a reset if the interval is negative.
RawServer::Handler Repeats(std::string begin, std::string block, int interval_ms = 0) {
  return [=](RawConnection& connection) {
    connection.ReadRequest();
    const std::chrono::milliseconds interval(interval_ms);
    bool sent = connection.Send(begin);
    while (sent && !block.empty() && !connection.AwaitStop(interval)) sent = connection.Send(block);
    if (interval_ms < 0) connection.Reset();
  };
}

TEST_F(TransferTest, FailsOnABadAnswerUnlessItsHeadRedirects) {
  const std::string found = "302 Found\r\nLocation: " + server_.url("/");
  const std::string cut = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc";
  const std::string long_body = "longer than 8388608", stacked = "more than one content coding";
  const struct {
    std::string name, answer, error;
    bool whole_head;
    std::string block = {};
    int interval_ms = 0;
  } rows[] = {
      {"drips", kEndless, "timed out", false, "x", 50},
      {"resets in mid-body", cut, "reset", true, "", -1},
      {"closes in mid-body", cut, "remaining", true},
      {"not HTTP", "SSH-2.0-server\r\n\r\n", "HTTP/0.9", false},
      {"endless body", kEndless, long_body, true, std::string(65536, 'x')},
      {"endless headers", "HTTP/1.1 200 OK\r\n", "longer than 262144", false,
       "X-Filler: " + std::string(1000, 'x') + "\r\n"},
      {"a body too long", AnswerOf("", std::string(kLongestBody + 1, 'x')), long_body, true},
      {"a bomb", AnswerOf("Content-Encoding: br\r\n", kBomb), long_body, true},
      {"NUL in a header", "HTTP/1.1 200 OK\r\nA: b\0c\r\n\r\n"s, "Nul", false},
      {"unknown coding", AnswerOf("Content-Encoding: x\r\n", "x"), "ncoding", true},
      {"two codings", AnswerOf("Content-Encoding: gzip, br\r\n", "x"), stacked, false},
      {"on two lines", AnswerOf("content-encoding:br\r\n"s + kGzip, "x"), stacked, false},
      {"folded", AnswerOf("Content-Encoding: br,\r\n gzip\r\n", "x"), stacked, false},
      {"both headers", AnswerOf("Transfer-Encoding: br, chunked\r\n"s + kGzip, ""), stacked, false},
      {"interim", "HTTP/1.1  103 A\r\n"s + kGzip + "\r\n" + AnswerOf(kGzip, ""), stacked, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (const bool redirects : {false, true}) {
      const std::string answer = ReplaceAll(row.answer, "200 OK", redirects ? found : "200 OK");
      RawServer server(Repeats(answer, row.block, row.interval_ms));
      const auto request = Get(server.url("/"), row.interval_ms > 0 ? 400 : 20'000);
      ResponsePtr response;
      const auto took = MillisecondsOf([&] { response = transport_.Fetch(request); });
      EXPECT_EQ(response->success, redirects && row.whole_head) << response->error_text;
      if (response->success) continue;
      EXPECT_TRUE(redirects || (response->status == 0 && response->body.empty()));
      EXPECT_THAT(response->error_text, HasSubstr(row.error));
      EXPECT_GE(took, row.interval_ms > 0 ? request->time_out - 1 : 0);
    }
  }
}

// The first line of the second answer is folded, and has no line before it to be joined with.
TEST_F(TransferTest, JoinsNoFoldedLineWithAnEarlierAnswer) {
  server_.Answer("/1", [](auto&&) { return ServerAnswer{302, {{"Location", "/2"}}}; });
  server_.Answer("/2", [](auto&&) { return ServerAnswer{200, {{" folded", "line"}}}; });
  EXPECT_FALSE(transport_.Fetch(server_.url("/1"))->success);
  EXPECT_TRUE(transport_.Fetch(server_.url("/"))->success);
}

TEST_F(TransferTest, HoldsUpNoOtherTransfer) {
  RawServer silent(NeverAnswers()), dripping(Repeats(kEndless, "x", 10));
  RawServer flooding(Repeats(kEndless, std::string(65536, 'x')));
  std::vector<std::future<ResponsePtr>> stuck;
  for (int i = 0; i < 3; ++i) {  // Few: a flood keeps the processor busy in an instrumented build.
    for (const auto* server : {&silent, &dripping, &flooding}) {
      stuck.push_back(transport_.Start(Get(server->url("/"))));
    }
  }
  EXPECT_TRUE(transport_.Fetch(Get(server_.url("/"), 20'000))->success);
  EXPECT_EQ(stuck.front().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

TEST_F(TransferTest, TakesAnswersWithinTheLimits) {
  const std::string interim = "HTTP/1.1 103 Early Hints\r\nEarly: 1\r\n\r\n";
  const std::string longest(kLongestBody, 'x');
  const struct {
    std::string answer;
    int status;
    std::string body, header_names;
  } rows[] = {
      {AnswerOf("", longest), 200, longest, "Content-Length "},
      {AnswerOf(kGzip, kGzippedGood), 200, "good", "Content-Encoding Content-Length "},
      {interim + AnswerOf("B: 1\r\nA: b\r\n folded\r\nB: 2\r\n", "c\0d"s), 200, "c\0d"s,
       "B b folded B Content-Length "},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nHTTP/x: t\r\n\r\n", 200, "",
       "Transfer-Encoding "},
      {"HTTP/1.1 404 No\r\nContent-Length: 10\r\n\r\nhalf", 404, "half", "Content-Length "},
      {interim, 0, "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.answer.substr(0, 100));
    RawServer server(AnswerWith(row.answer));
    const auto response = transport_.Fetch(server.url("/"));
    EXPECT_EQ(response->status, row.status);
    EXPECT_EQ(response->success && response->error_text.empty(), row.status == 200);
    EXPECT_TRUE(response->body == Bytes(row.body) && response->body_text == row.body);
    std::string names;
    for (const auto& [name, value] : response->headers) names += (name == "A" ? value : name) + " ";
    EXPECT_EQ(names, row.header_names);
  }
}

}  // namespace
