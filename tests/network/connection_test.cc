#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/network/transport.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"

namespace {

using namespace test_support;

const std::string kGood = HttpAnswer("200 OK", "good");

TEST(ConnectionTest, IsReplacedUnseenWhenTheServerHasClosedItOrClosesItUnderARequest) {
  const RawServer::Handler handlers[] = {AnswerWith(kGood), [](RawConnection& connection) {
                                           connection.ReadRequest();
                                           connection.Send(kGood);
                                           if (!connection.ReadRequest().empty()) {
                                             connection.Reset();
                                           }
                                         }};
  for (const auto& handler : handlers) {
    RawServer server(handler);
    Transport transport;
    for (int i = 1; i <= 5; ++i) EXPECT_EQ(transport.Fetch(server.url("/"))->body_text, "good");
    EXPECT_EQ(server.connections(), 5);
  }
}

// Only what can be carried out twice is sent twice.
TEST(ConnectionTest, ThatBreaksUnderAPostEndsIt) {
  std::atomic<int> posts{0};
  RawServer server([&](RawConnection& connection) {
    std::string request;
    while ((request = connection.ReadRequest()).starts_with("GET")) connection.Send(kGood);
    posts += request.starts_with("POST") ? 1 : 0;
  });
  Transport transport;
  EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
  EXPECT_THAT(transport.Fetch(Post(server.url("/"), "text"))->error_text,
              testing::HasSubstr("not to be repeated"));
  EXPECT_EQ(posts, 1);
}

// As behind a router that has forgotten its connections.
TEST(ConnectionTest, ThatFellSilentTakesTheOthersWithIt) {
  HttpServer other;
  RawServer server(AnswersOnce(kGood));
  Transport transport;
  EXPECT_TRUE(transport.Fetch(other.url("/"))->success);
  EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
  EXPECT_FALSE(transport.Fetch(Get(server.url("/"), 200))->success);
  EXPECT_TRUE(transport.Fetch(other.url("/"))->success);
  EXPECT_EQ(server.connections(), 1);
  EXPECT_EQ(other.connections(), 2);
}

TEST(ConnectionTest, OfHttp2IsSharedByRequestsAndOutlivesWhatTheServerCloses) {
  CertificateAuthority authority;
  for (const std::string closing : {"", "keepalive_requests 7;"}) {
    NginxServer nginx({.listeners = {{"127.0.0.1", authority.Issue({"a.example"}), true}},
                       .files = {{"index", "good"}},
                       .server_text = closing});
    Transport transport;
    EXPECT_TRUE(transport.Fetch(nginx.url("/index"))->success);
    std::vector<std::future<ResponsePtr>> responses;
    for (int i = 0; i < 100; ++i) responses.push_back(transport.Start(Get(nginx.url("/index"))));
    for (auto& response : responses) EXPECT_EQ(response.get()->error_text, "");
    std::istringstream log(nginx.AccessLog(101));
    std::set<std::string> connections;
    for (std::string protocol, host, header, sni, connection, rest;
         log >> protocol >> host >> header >> sni >> connection && std::getline(log, rest);) {
      connections.insert(connection);
    }
    EXPECT_EQ(connections.size() == 1, closing.empty()) << connections.size();
  }
}

}  // namespace
