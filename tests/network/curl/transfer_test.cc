#include <gmock/gmock.h>
#include <linux/filter.h>
#include <sys/socket.h>

#include <string>
#include <utility>

#include "base/text/strings.h"
#include "network/curl/answer_collector.h"
#include "tests/support/child_process.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"
#include "tests/support/program.h"
#include "tests/support/raw_server.h"
#include "tests/support/transport.h"

namespace {

using namespace std::string_literals;
using namespace test_support;
using namespace WQBASE::network;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using zo_base::ReplaceAll;

CertificateAuthority& Authority() {
  static CertificateAuthority authority;
  return authority;
}

class TransferTest : public testing::Test {
 protected:
  HttpServer server_;
  Transport transport_;
};

TEST_F(TransferTest, SendsVerbBodyAndHeadersInOrderButNoneThatWouldBreakTheMessage) {
  const struct {
    std::int32_t method;
    std::string body, verb, sent, length;
  } rows[] = {
      {kMethodGet, "dropped", "GET", "", ""},
      {kMethodPost, "", "POST", "", "0"},
      {kMethodPost, "a\0\r\nb"s, "POST", "a\0\r\nb"s, "5"},
      {kMethodDelete, "text", "DELETE", "text", "4"},
      {-1, "text", "POST", "text", "4"},
      {kMethodPost, std::string(3'000'000, 'x'), "POST", std::string(3'000'000, 'x'), "3000000"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.verb + " " + std::to_string(row.method));
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
    EXPECT_EQ(seen.body, row.sent);
    EXPECT_EQ(seen.header("Content-Length"), row.length);
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
    std::string location;  // "{server}" and "{other}" stand for the servers' addresses.
    std::string end;       // "verb body path Host" of the last request; empty when not followed.
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
      {"ambiguous", 302, kMethodGet, "http://x.example\\@" + server_.url("/").substr(7), ""},
      {"own url", 302, kMethodGet, "{server}/start", ""},
      {"no location", 302, kMethodGet, "", ""},
      {"not a redirect", 300, kMethodGet, "/end", ""},
      {"file", 302, kMethodGet, "file:///etc/hosts", ""},
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

  RawServer silent(NeverAnswers());
  for (const std::string& to : {"/start"s, silent.url("/")}) {
    server_.Answer("/start", [to](const SeenRequest&) {
      return ServerAnswer{302, {{"Location", to}}, ""};
    });
    EXPECT_THAT(transport_.Fetch(Get(server_.url("/start"), 1'000))->error_text,
                HasSubstr(to == silent.url("/") ? "timed out" : "20"));
  }
}

const std::string kGood = HttpAnswer("200 OK", "good");

// Only what can be carried out twice is sent twice.
TEST(ConnectionTest, IsReplacedUnseenWhenTheServerHasClosedItOrClosesItUnderARequestButAPost) {
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

// As behind a router that has forgotten its connections.
TEST(ConnectionTest, ThatFellSilentTakesTheOthersWithItAndOneThatNeverAnsweredTakesNone) {
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

TEST(ConnectionTest, OfHttp2IsSharedByRequestsAndOutlivesWhatTheServerCloses) {
  for (const std::string closing : {"", "keepalive_requests 7; keepalive_timeout 1s;"}) {
    NginxServer nginx({.listeners = {{"127.0.0.1", Authority().Issue({"a.example"}), true}},
                       .files = {{"index", "good"}},
                       .server_text = closing});
    Transport transport;
    EXPECT_TRUE(transport.Fetch(nginx.url("/index"))->success);
    for (int round = 0; round < 5; ++round) {
      std::vector<std::future<ResponsePtr>> responses;
      for (int i = 0; i < 40; ++i) responses.push_back(transport.Start(Get(nginx.url("/index"))));
      for (auto& response : responses) EXPECT_EQ(response.get()->error_text, "");
    }
    const std::string log = nginx.AccessLog(201), first = log.substr(0, log.find('\n') + 1);
    EXPECT_EQ(ReplaceAll(log, first, "").empty(), closing.empty());  // On one connection.
  }
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

// A beginning, and then the same block as fast as the peer reads, or after each interval. Without a
// block the end, as a reset when the interval is negative.
RawServer::Handler Repeats(std::string begin, std::string block, int interval_ms = 0) {
  return [=](RawConnection& connection) {
    connection.ReadRequest();
    const std::chrono::milliseconds interval(interval_ms);
    bool sent = connection.Send(begin);
    while (sent && !block.empty() && !connection.AwaitStop(interval)) sent = connection.Send(block);
    if (interval_ms < 0) connection.Reset();
  };
}

TEST_F(TransferTest, EndsInAnErrorTextWhateverTheServerDoesUnlessAWholeHeadRedirects) {
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

// Only the second answer's first line is folded: there is nothing before it to be joined with.
TEST_F(TransferTest, JoinsAFoldedLineWithNothingOfTheAnswerBefore) {
  RawServer server([](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send(HttpAnswer("302 Found", "", "Location: /2\r\n"));
    connection.ReadRequest();
    connection.Send("HTTP/1.1 200 OK\r\n folded: line\r\nContent-Length: 0\r\n\r\n");
  });
  EXPECT_FALSE(transport_.Fetch(server.url("/"))->success);
  EXPECT_TRUE(transport_.Fetch(server_.url("/"))->success);
}

// Those that hang, drip and flood at once.
TEST_F(TransferTest, HoldsUpNoOtherTransfer) {
  RawServer silent(NeverAnswers());
  RawServer dripping(Repeats(kEndless, "x", 10));
  RawServer flooding(Repeats(kEndless, std::string(65536, 'x')));
  std::vector<std::future<ResponsePtr>> stuck;
  for (int i = 0; i < 20; ++i) {
    stuck.push_back(transport_.Start(Get(silent.url("/"))));
    stuck.push_back(transport_.Start(Get(dripping.url("/"))));
  }
  // Few: what they send keeps the processor busy in an instrumented build.
  for (int i = 0; i < 3; ++i) stuck.push_back(transport_.Start(Get(flooding.url("/"))));
  EXPECT_TRUE(transport_.Fetch(Get(server_.url("/"), 20'000))->success);
  EXPECT_EQ(stuck.front().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

TEST_F(TransferTest, TakesWhatIsWithinTheLimitsWithoutInterimHeadersAndTrailers) {
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

// Returns a request for an IP literal whose server must be a.example.
std::shared_ptr<HttpRequest> Pinned(const std::string& url, int port) {
  auto request = Get(url);
  request->sni = true;
  request->host = "a.example";
  request->ip = "127.0.0.1";
  request->port = port;
  return request;
}

// Over HTTP/1.1 on an IPv4 address, and over HTTP/2 on an IPv6 one.
class TlsTest : public testing::TestWithParam<bool> {
 protected:
  NginxServer Serve(const ServerCertificate& certificate, std::string text = "") const {
    return NginxServer({.listeners = {{address_, certificate, http2_}},
                        .files = {{"index", "it is here"}},
                        .server_text = std::move(text)});
  }

  const bool http2_ = GetParam();
  const std::string address_ = http2_ ? "::1" : "127.0.0.1";
};

TEST_P(TlsTest, ChecksTheNameBehindAnIPAndNothingWithoutOne) {
  CertificateAuthority stranger;
  const struct {
    ServerCertificate certificate;
    std::string error;
  } rows[] = {{Authority().Issue({"a.example"}), ""},
              {Authority().Issue({"b.example"}), "a.example"},
              {Authority().Issue({"a.example"}, Validity::kExpired), "expired"},
              {stranger.Issue({"a.example"}), "issuer"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.error);
    NginxServer nginx = Serve(row.certificate);
    const std::string url = nginx.url("/index");
    Transport transport(Authority().trust_store());
    // The unchecked connection is in the pool when the checked transfer looks for one.
    EXPECT_EQ(transport.Fetch(url)->body_text, "it is here");
    const auto request = Pinned(url, nginx.port());
    const auto response = transport.Fetch(request);
    EXPECT_EQ(response->success, row.error.empty());
    EXPECT_THAT(response->error_text, HasSubstr(row.error));
    EXPECT_FALSE(Transport(Authority().trust_store(), true).Fetch(url)->success);  // No such IP.
    if (row.error.empty()) {
      const std::string protocol = http2_ ? "HTTP/2.0" : "HTTP/1.1";
      // Server name, Host, TLS name.
      EXPECT_THAT(nginx.AccessLog(2), HasSubstr(protocol + " a.example a.example a.example"));
    } else {
      EXPECT_EQ(transport.Fetch(url)->body_text, "it is here");
      EXPECT_THAT(nginx.AccessLog(2), Not(HasSubstr("a.example")));
    }
  }
}

TEST_P(TlsTest, FollowsARedirectUnderTheSameCheck) {
  const ServerCertificate of_name = Authority().Issue({"a.example"});
  NginxServer other({.listeners = {{address_, Authority().Issue({address_}), http2_},
                                   {address_, of_name, http2_}},
                     .files = {{"index", "it is there"}}});
  const struct {
    std::string to;
    bool followed;
    std::string host;  // What the last request named.
  } rows[] = {
      {"/index", true, "a.example"},  // The same host, relative.
      {"https://A.Example.:$server_port/index", true, "A.Example."},
      {other.url("/index"), true, http2_ ? "[::1]" : address_},
      {other.url("/index", 1), false, ""},  // An IP whose certificate is for a name.
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.to);
    NginxServer nginx =
        Serve(of_name, "location /start { absolute_redirect off; return 302 " + row.to + "; }");
    Transport transport(Authority().trust_store());
    const auto response = transport.Fetch(Pinned(nginx.url("/start"), nginx.port()));
    EXPECT_EQ(response->success, row.followed) << response->error_text;
    if (!row.followed) continue;
    const bool stays = row.to != other.url("/index");
    EXPECT_EQ(response->body_text, stays ? "it is here" : "it is there");
    EXPECT_THAT(stays ? nginx.AccessLog(2) : other.AccessLog(1),
                HasSubstr(" " + row.host + (stays ? " a.example " : " - ")));
  }
}

INSTANTIATE_TEST_SUITE_P(Http, TlsTest, testing::Bool());

// A prime of 10,000 bits takes a second of the transport's thread.
TEST(HandshakeTest, OffersNoKeyExchangeOverAPrimeOfTheServers) {
  const TempDirectory directory;
  const std::string prime = directory.path() + "prime", certificate = directory.path() + "cert";
  const std::string key = directory.path() + "key";  // Of RSA, as these exchanges want one.
  Program({"/bin/sh", "-c",
           "openssl genpkey -genparam -algorithm DH -pkeyopt group:ffdhe2048 -out " + prime +
               " && openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=a -keyout " + key +
               " -out " + certificate})
      .Wait();
  for (const std::string exchange : {"kDHE", "kDHE:kECDHE"}) {
    NginxServer nginx({.listeners = {{"127.0.0.1", ServerCertificate{certificate, key}}},
                       .files = {{"x", ""}},
                       .server_text = "ssl_protocols TLSv1.2; ssl_dhparam " + prime +
                                      "; ssl_ciphers " + exchange + ";"});
    EXPECT_EQ(Transport().Fetch(nginx.url("/x"))->success, exchange != "kDHE");
  }
}

TEST(PinnedHostTest, IsReachedWithoutTheProxyWhenNoProxyListsItsIP) {
  EXPECT_GOOD_CHILD([] {
    const ServerCertificate own = Authority().Issue({"a.example"});
    NginxServer nginx({.listeners = {{"127.0.0.1", own}, {"::1", own}}, .files = {{"x", ""}}});
    RawServer proxy(AnswerWith(HttpAnswer("403 Forbidden", "")));
    setenv("https_proxy", proxy.url("").c_str(), 1);
    const struct {
      const char *lower, *upper;
      bool direct[2];  // On IPv4 and on IPv6.
    } rows[] = {{"", "", {false, false}},
                {"127.0.0.2,127.0.0.1/33 ::2/127,127.0.0.1.example", "", {false, false}},
                {"", "a.test, 127.0.0.1,[::1]", {true, true}},
                {"::/127", "*", {false, true}},
                {"127.0.0.3/30\t::3/0", "", {true, false}}};
    for (const auto& row : rows) {
      setenv("no_proxy", row.lower, 1);
      setenv("NO_PROXY", row.upper, 1);
      for (const int v6 : {0, 1}) {
        const auto request = Pinned(nginx.url("/x", v6), 0);
        EXPECT_EQ(Transport(Authority().trust_store()).Fetch(request)->success, row.direct[v6])
            << row.lower << row.upper;
      }
    }
    EXPECT_EQ(proxy.connections(), 6);
    return 0;
  });
}

TEST(PinnedHostTest, GoesToTheGivenIPFallsBackToItWithoutANameAndRefusesANameThatIsNone) {
  const std::string ip = "127.0.0.1";
  NginxServer nginx(
      {.listeners = {{ip, Authority().Issue({"a.example"})}, {ip, Authority().Issue({ip})}},
       .files = {{"x", ""}}});
  Transport transport(Authority().trust_store());
  for (const std::string url : {"https://a.example/x", "https://a.example:1/x"}) {
    EXPECT_TRUE(transport.Fetch(Pinned(url, nginx.port()))->success) << url;
  }
  const std::string line = "HTTP/1.1 a.example a.example a.example [0-9]+ GET /x\n";
  EXPECT_THAT(nginx.AccessLog(2), testing::MatchesRegex(line + line));
  for (const std::string host : {"", "127.0.0.1", "127.1", "0x7f.0x.1", "127.0.0.1."}) {
    for (const bool is_of_ip : {true, false}) {
      const std::string url = UrlOf("https", host.empty() ? ip : host, nginx.port(is_of_ip), "/x");
      EXPECT_TRUE(transport.Fetch(url)->success);  // Its connection was opened without a check.
      const auto request = Pinned(url, nginx.port(is_of_ip));
      request->host = host;
      EXPECT_EQ(transport.Fetch(request)->success, is_of_ip) << host;
    }
  }
  for (const std::string host : {"a.example/x", "a@b", "a.example\r\nX: 1", "a b", ":1:2"}) {
    const auto request = Pinned(nginx.url("/refused"), nginx.port());
    request->host = host;
    EXPECT_NE(transport.Fetch(request)->error_text, "") << host;
  }
  EXPECT_TRUE(transport.Fetch(nginx.url("/x"))->success);
  EXPECT_THAT(nginx.AccessLog(9), Not(HasSubstr("/refused")));
}

}  // namespace
