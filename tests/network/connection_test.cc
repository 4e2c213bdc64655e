#include <gmock/gmock.h>

#include <atomic>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/network/transport.h"
#include "tests/support/certificate_authority.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"
#include "tests/support/raw_server.h"

namespace {

using namespace test_support;
using WQBASE::network::kMethodPost;

TEST(ConnectionTest, IsKeptForTheNextRequestUntilTheNetworkChanges) {
  HttpServer server;
  Transport transport;
  Event release;
  server.Answer("/held", [&](const SeenRequest&) {
    return ServerAnswer{release.Await() ? 200 : 500, {}, "held"};
  });
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
  EXPECT_EQ(server.connections(), 1);
  auto held = transport.Start(Get(server.url("/held")));  // On that connection.
  while (server.requests().size() < 4) std::this_thread::yield();

  transport.RetireConnections();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
  EXPECT_EQ(server.connections(), 2);
  release.Set();
  EXPECT_EQ(held.get()->body_text, "held");
  EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
  EXPECT_EQ(server.connections(), 2);
}

TEST(ConnectionTest, IsReplacedUnseenWhenTheServerHasClosedIt) {
  Transport transport;
  RawServer server(KeepsAliveThenCloses("good"));
  for (int i = 1; i <= 5; ++i) {
    EXPECT_EQ(transport.Fetch(server.url("/"))->body_text, "good");
    EXPECT_EQ(server.connections(), i);
    server.CloseConnections();
  }
}

// The worst moment: the server reads the second request on a connection and then closes it.
TEST(ConnectionTest, IsReplacedUnseenWhenTheServerClosesItUnderARequest) {
  RawServer server([](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
    if (!connection.ReadRequest().empty()) connection.Reset();
  });
  Transport transport;
  for (int i = 1; i <= 5; ++i) EXPECT_EQ(transport.Fetch(server.url("/"))->body_text, "good");
  EXPECT_EQ(server.connections(), 5);
}

// Only what can be carried out twice is sent twice.
TEST(ConnectionTest, ThatBreaksUnderAPostEndsIt) {
  std::atomic<int> posts{0};
  RawServer server([&](RawConnection& connection) {
    for (;;) {
      const std::string request = connection.ReadRequest();
      if (!request.starts_with("GET")) {
        posts += request.starts_with("POST") ? 1 : 0;
        return;
      }
      connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
    }
  });
  Transport transport;
  EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
  const auto request = Get(server.url("/"));
  request->method = kMethodPost;
  request->body = Bytes("text");
  EXPECT_THAT(transport.Fetch(request)->error_text, testing::HasSubstr("not to be repeated"));
  EXPECT_EQ(posts, 1);
}

// As behind a router that has forgotten its connections.
TEST(ConnectionTest, ThatFellSilentTakesTheOthersWithIt) {
  HttpServer other;
  RawServer server([](RawConnection& connection) {
    connection.ReadRequest();
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
    connection.AwaitStop();
  });
  Transport transport;
  EXPECT_TRUE(transport.Fetch(other.url("/"))->success);
  EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
  EXPECT_FALSE(transport.Fetch(Get(server.url("/"), 200))->success);
  EXPECT_TRUE(transport.Fetch(other.url("/"))->success);
  EXPECT_EQ(server.connections(), 1);
  EXPECT_EQ(other.connections(), 2);
}

TEST(ConnectionTest, OfHttp2OutlivesWhatTheServerCloses) {
  CertificateAuthority authority;
  NginxServer nginx({.listeners = {{"127.0.0.1", authority.Issue({"a.example"}), true}},
                     .files = {{"/index", "good"}},
                     .server_text = "keepalive_requests 7; keepalive_timeout 1s;"});
  Transport transport;
  for (int round = 0; round < 5; ++round) {
    std::vector<std::future<ResponsePtr>> responses;
    for (int i = 0; i < 40; ++i) responses.push_back(transport.Start(Get(nginx.url("/index"))));
    for (auto& response : responses) {
      const auto answer = response.get();
      EXPECT_TRUE(answer->success) << answer->error_text;
    }
  }
}

TEST(ConnectionTest, IsSharedByRequestsOverHttp2) {
  CertificateAuthority authority;
  NginxServer nginx({.listeners = {{"127.0.0.1", authority.Issue({"a.example"}), true}},
                     .files = {{"/index", "good"}}});
  Transport transport;
  EXPECT_TRUE(transport.Fetch(nginx.url("/index"))->success);
  std::vector<std::future<ResponsePtr>> responses;
  for (int i = 0; i < 20; ++i) responses.push_back(transport.Start(Get(nginx.url("/index"))));
  for (auto& response : responses) EXPECT_TRUE(response.get()->success);
  std::istringstream log(nginx.AccessLog(21));
  std::set<std::string> connections;
  for (std::string line; std::getline(log, line);) {
    std::istringstream fields(line);
    std::vector<std::string> field{std::istream_iterator<std::string>(fields), {}};
    connections.insert(field.at(5));
  }
  EXPECT_EQ(connections.size(), 1U);
}

TEST(RequestorTest, CompletesEachOfManyRequestsFromManyThreadsOnce) {
  HttpServer good;
  RawServer broken(HalfStatusLine());
  Transport transport;
  std::vector<std::thread> senders;
  std::atomic<int> succeeded{0};
  for (int t = 0; t < 8; ++t) {
    senders.emplace_back([&, t] {
      for (int i = 0; i < 25; ++i) {
        const bool is_good = (t + i) % 4 != 0;
        if (t == 0 && i % 5 == 0) transport.RetireConnections();
        succeeded += transport.Fetch(is_good ? good.url("/") : broken.url("/"))->success ? 1 : 0;
      }
    });
  }
  for (auto& sender : senders) sender.join();
  EXPECT_EQ(succeeded, 150);
}

TEST(RequestorTest, DropsWhatIsInFlightAtItsEnd) {
  RawServer silent(NeverAnswers());
  Transport transport;
  std::vector<std::future<ResponsePtr>> responses;
  for (int i = 0; i < 200; ++i) responses.push_back(transport.Start(Get(silent.url("/"))));
  while (silent.connections() < 200) std::this_thread::yield();
  transport.Destroy();
  for (auto& response : responses) EXPECT_THROW(response.get(), std::future_error);
}

}  // namespace
