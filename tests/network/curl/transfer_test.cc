#include <gmock/gmock.h>
#include <linux/filter.h>

#include "base/text/strings.h"
#include "network/http/transfer_limits.h"
#include "tests/support/http_server.h"
#include "tests/support/program.h"
#include "tests/support/transport.h"

namespace {

using namespace std::string_literals;
using namespace test_support;
using namespace WQBASE::network;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using zo_base::BytesOf;
using zo_base::ReplaceAll;

class TransferTest : public testing::Test {
 protected:
  HttpServer server_;
  Transport transport_;
};

TEST_F(TransferTest, SendsAllButHeadersThatWouldBreakTheMessage) {
  const std::string binary = "a\0\r\nb"s, large(3'000'000, 'x');
  const struct {
    std::int32_t method;
    std::string body, seen;  // The latter with the verb and "Content-Length" before it.
  } rows[] = {{kMethodGet, "dropped", "GET  "},
              {kMethodPost, "", "POST 0 "},
              {kMethodDelete, "text", "DELETE 4 text"},
              {-1, binary, "POST 5 " + binary},
              {kMethodPost, large, "POST 3000000 " + large}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.seen.substr(0, 20));
    const auto request = Get(server_.url("/seen"));
    request->method = row.method;
    request->body = BytesOf(row.body);
    request->sni = true;
    request->host = "a.example\r\nX-Evil: 1";
    request->headers = {{"X-One", "1"},          {"X-Split", "v\r\nX-Evil: 1"},
                        {"X-Nul", "v\0w"s},      {"X-Evil: 1\r\nX", "1"},
                        {"Content-Length", "7"}, {"transfer-encoding", "chunked"},
                        {"x-one", "2"},          {"X-Empty", " "},
                        {"X-Two", "a: b;c"}};
    EXPECT_EQ(transport_.Fetch(request)->status, 200);
    const SeenRequest seen = server_.requests().back();
    EXPECT_TRUE(seen.method + " " + seen.header("Content-Length") + " " + seen.body == row.seen);
    EXPECT_THAT(seen.header("Accept-Encoding"), HasSubstr("gzip"));
    EXPECT_THAT(seen.head, HasSubstr("\r\nX-One: 2\r\nX-Empty:\r\nX-Two: a: b;c\r\n"));
    EXPECT_THAT(seen.head, Not(ContainsRegex("Evil|Split|Nul|transfer|Length: 7")));
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
  RawServer silent(NeverAnswers());
  const std::string end = server_.url("/end"), elsewhere = other.url("/end");
  const struct {
    std::string name;
    int status;
    std::int32_t method;
    std::string location;
    std::string seen = {};  // "verb body path Host" of the last request; empty when not followed.
  } rows[] = {
      {"post 302", 302, kMethodPost, end, "GET  /end 127.0.0.1"},
      {"post 301", 301, kMethodPost, "end?q=1", "GET  /end?q=1 127.0.0.1"},
      {"post 308", 308, kMethodPost, "/end", "POST text /end 127.0.0.1"},
      {"put 302", 302, kMethodPut, "/end", "PUT text /end 127.0.0.1"},
      {"put 303", 303, kMethodPut, "/end", "GET  /end 127.0.0.1"},
      {"get 307 elsewhere", 307, kMethodGet, elsewhere, "GET  /end 127.0.0.2"},
      {"blank", 302, kMethodGet, server_.url("/the end"), "GET  /the%20end 127.0.0.1"},
      {"empty first", 302, kMethodGet, "\r\nLocation: /end\r\nLocation: /", "GET  /end 127.0.0.1"},
      {"ambiguous", 302, kMethodGet, "http://x.example\\@" + end.substr(7)},
      {"own url", 302, kMethodGet, server_.url("/start")},
      {"no location", 302, kMethodGet, ""},
      {"not a redirect", 300, kMethodGet, "/end"},
      {"file", 302, kMethodGet, "file:///etc/hosts"},
  };
  const auto fetch = [&](std::int32_t method, int status, const std::string& to, int time_out_ms) {
    server_.Answer("/start", [=](auto&&) {
      return ServerAnswer{status, {{"Location", to}}, "redirected"};
    });
    const auto request = Get(server_.url("/start"), time_out_ms);
    request->method = method;
    request->body = BytesOf("text");
    request->headers = {{"Host", "a.example"}, {"X-Kept", "kept "}, {"Authorization", "secret"}};
    return transport_.Fetch(request);
  };
  for (const auto& [name, status, method, location, wanted] : rows) {
    SCOPED_TRACE(name);
    const auto response = fetch(method, status, location, 10'000);
    const bool followed = !wanted.empty();
    EXPECT_EQ(response->status, followed ? 200 : status);
    EXPECT_EQ(response->error_text.empty(), followed);
    if (!followed) continue;
    const SeenRequest seen = (location == elsewhere ? other : server_).requests().back();
    EXPECT_EQ(seen.method + " " + seen.body + " " + seen.target + " " + seen.header("Host"),
              wanted);
    EXPECT_EQ(seen.header("X-Kept") + seen.header("Authorization"),
              location == elsewhere ? "kept " : "kept secret");
  }
  other.Answer("/", [](auto&&) { return ServerAnswer{302, {{"Location", "/"}}}; });
  EXPECT_THAT(transport_.Fetch(other.url("/"))->error_text, HasSubstr("(20)"));
  // A first line that is folded has no line before it to be joined with.
  server_.Answer("/folded", [](auto&&) { return ServerAnswer{200, {{" folded", "line"}}}; });
  EXPECT_FALSE(fetch(kMethodGet, 302, "/folded", 10'000)->success);
  EXPECT_THAT(fetch(kMethodGet, 302, silent.url("/"), 1'000)->error_text, HasSubstr("timed out"));
}

std::string OutputOf(const std::string& command) {
  Program shell({"/bin/sh", "-c", command});
  shell.Wait();
  return shell.output();
}

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
  RawServer once(Repeats(kGood, "late", 60'000));
  Transport transport;
  EXPECT_TRUE(transport.Fetch(once.url("/"))->success);
  EXPECT_TRUE(transport.Fetch(other.url("/"))->success);
  for (const std::string& url : {cut_off.url("/"), never.url("/"), once.url("/")}) {
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

TEST_F(TransferTest, TakesAnAnswerWithinTheLimitsOnly) {
  const std::string found = "302 Found\r\nLocation: " + server_.url("/");
  const std::string cut = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc";
  const std::string interim = "HTTP/1.1 103 Early Hints\r\nEarly: 1\r\n\r\n";
  const std::string too_long = "longer than 8388608", stacked = "more than one content coding";
  const std::string longest(kLongestBody, 'x');
  const struct {
    std::string name, answer;
    bool redirects;                    // With the status of a redirect it is followed.
    std::string error, result = "0 ";  // The latter is "status body header names".
    std::string block = {};
    int interval_ms = 0;
  } rows[] = {
      {"longest", AnswerOf("", longest), true, "", "200 " + longest + " Content-Length"},
      {"too long", AnswerOf("", longest + "x"), true, too_long},
      {"a bomb", AnswerOf(kGzip, OutputOf("head -c 64M /dev/zero | gzip")), true, too_long},
      {"endless headers", "HTTP/1.1 200 OK\r\n", false, "longer than 262144", "0 ",
       "X-Filler: " + std::string(1000, 'x') + "\r\n"},
      {"drips", kEndless, false, "timed out", "0 ", "x", 50},
      {"resets in mid-body", cut, true, "reset", "0 ", "", -1},
      {"closes in mid-body", cut, true, "remaining"},
      {"404 in mid-body", "HTTP/1.1 404 No\r\nContent-Length: 10\r\n\r\nhalf", false, "remaining",
       "404 half Content-Length"},
      {"interim only", interim, false, "mpty reply"},
      {"interim first, folded", interim + AnswerOf("B: 1\r\nA: b\r\n folded\r\nB: 2\r\n", "c\0d"s),
       true, "", "200 c\0d B b folded B Content-Length"s},
      {"trailer", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nHTTP/x: t\r\n\r\n",
       true, "", "200  Transfer-Encoding"},
      {"not HTTP", "SSH-2.0-server\r\n\r\n", false, "HTTP/0.9"},
      {"NUL in a header", "HTTP/1.1 200 OK\r\nA: b\0c\r\n\r\n"s, false, "Nul"},
      {"gzip", AnswerOf(kGzip, OutputOf("printf good | gzip")), true, "",
       "200 good Content-Encoding Content-Length"},
      {"two codings", AnswerOf("Content-Encoding: gzip, br\r\n", "x"), false, stacked},
      {"on two lines", AnswerOf("content-encoding:br\r\n"s + kGzip, "x"), false, stacked},
      {"on a folded line", AnswerOf("Content-Encoding: br,\r\n gzip\r\n", "x"), false, stacked},
      {"both headers", AnswerOf("Transfer-Encoding: br, chunked\r\n"s + kGzip, ""), false, stacked},
      {"over two heads", "HTTP/1.1  103 A\r\n"s + kGzip + "\r\n" + AnswerOf(kGzip, ""), false,
       stacked},
  };
  RawServer dripping(Repeats(kEndless, "x", 10));  // It holds up no other transfer.
  const auto stuck = transport_.Start(Get(dripping.url("/"), 120'000));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto fetch = [&](const std::string& answer) {
      RawServer server(Repeats(answer, row.block, row.interval_ms));
      return transport_.Fetch(Get(server.url("/"), row.interval_ms > 0 ? 400 : 20'000));
    };
    const auto response = fetch(row.answer);
    EXPECT_THAT(response->error_text, HasSubstr(row.error));
    EXPECT_EQ(response->success && response->error_text.empty(), row.error.empty());
    EXPECT_EQ(std::string(response->body.begin(), response->body.end()), response->body_text);
    std::string result = std::to_string(response->status) + " " + response->body_text;
    for (const auto& [name, value] : response->headers)
      result += " " + (name == "A" ? value : name);
    EXPECT_TRUE(result == row.result) << result.substr(0, 100);
    EXPECT_EQ(fetch(ReplaceAll(row.answer, "200 OK", found))->success, row.redirects);
  }
  EXPECT_EQ(stuck.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

}  // namespace
