#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "network/curl/answer_collector.h"
#include "tests/network/transport.h"
#include "tests/support/raw_server.h"
#include "tests/support/temp_directory.h"

namespace {

using namespace std::string_literals;
using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using WQBASE::network::kLongestBody;

// A gzip text of 64 MiB of zeros is some 64 KiB long: what a stored answer can blow up to.
std::string Bomb() {
  const TempDirectory directory;
  const std::string path = directory / "bomb.gz";
  const std::string command = "head -c 67108864 /dev/zero | gzip -9 > '" + path + "'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  return ReadFile(path);
}

std::string AnswerOf(const std::string& headers, const std::string& body) {
  return "HTTP/1.1 200 OK\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

TEST(BrokenServerTest, EndsInAnErrorTextWhateverTheServerDoes) {
  const struct {
    std::string name;
    RawServer::Handler handler;
    std::string error;
    bool at_time_out;
  } rows[] = {
      {"never answers", NeverAnswers(), "timed out", true},
      {"drips", Drips(std::chrono::milliseconds(50)), "timed out", true},
      {"resets in mid-body", ResetsInMidBody(), "reset", false},
      {"closes in mid-body", AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"),
       "remaining", false},
      {"half a status line", HalfStatusLine(), "", false},
      {"closes at once", [](RawConnection&) {}, "", false},
      {"not HTTP", AnswerWith("SSH-2.0-server\r\n\r\n"), "HTTP/0.9", false},
      {"endless body", EndlessBody(), "longer than 8388608", false},
      {"endless headers", EndlessHeaders(), "longer than 262144", false},
      {"a body too long", AnswerWith(AnswerOf("", std::string(kLongestBody + 1, 'x'))),
       "longer than 8388608", false},
      {"a bomb", AnswerWith(AnswerOf("Content-Encoding: gzip\r\n", Bomb())), "longer than 8388608",
       false},
      {"a broken encoding", AnswerWith(AnswerOf("Content-Encoding: gzip\r\n", "no gzip")), "",
       false},
      {"NUL in a header", AnswerWith("HTTP/1.1 200 OK\r\nA: b\0c\r\n\r\n"s), "Nul", false},
  };
  Transport transport;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RawServer server(row.handler);
    ResponsePtr response;
    constexpr int kTimeOut = 400;
    const auto took = MillisecondsOf([&] {
      response = transport.Fetch(Get(server.url("/"), row.at_time_out ? kTimeOut : 20'000));
    });
    EXPECT_FALSE(response->success);
    EXPECT_EQ(response->status, 0);
    EXPECT_NE(response->error_text, "");
    EXPECT_THAT(response->error_text, HasSubstr(row.error));
    EXPECT_TRUE(response->body.empty());
    EXPECT_GE(took, row.at_time_out ? kTimeOut - 1 : 0);
  }
}

TEST(BrokenServerTest, TakesWhatIsJustWithinTheLimits) {
  Transport transport;
  RawServer longest(AnswerWith(AnswerOf("", std::string(kLongestBody, 'x'))));
  EXPECT_EQ(transport.Fetch(longest.url("/"))->body.size(), kLongestBody);
  RawServer interim(AnswerWith("HTTP/1.1 103 Early Hints\r\nA: early\r\n\r\n" +
                               AnswerOf("B: 1\r\nA: b\r\n folded\r\nB: 2\r\n", "c\0d"s)));
  const auto response = transport.Fetch(interim.url("/"));
  EXPECT_THAT(response->headers, ElementsAre(Pair("B", "1"), Pair("A", "b folded"), Pair("B", "2"),
                                             Pair("Content-Length", "3")));
  EXPECT_EQ(response->body, Bytes("c\0d"s));
}

TEST(BrokenServerTest, HandsOverWhatCameOfAnAnswerWithABadStatus) {
  RawServer server(AnswerWith("HTTP/1.1 404 No\r\nA: b\r\nContent-Length: 10\r\n\r\nhalf"));
  Transport transport;
  const auto response = transport.Fetch(server.url("/"));
  EXPECT_EQ(response->status, 404);
  EXPECT_EQ(response->body_text, "half");
  EXPECT_THAT(response->headers, ElementsAre(Pair("A", "b"), Pair("Content-Length", "10")));
  EXPECT_NE(response->error_text, "");
  RawServer interim(AnswerWith("HTTP/1.1 103 Early Hints\r\nA: early\r\n\r\n"));
  EXPECT_EQ(transport.Fetch(interim.url("/"))->status, 0);
}

TEST(BrokenServerTest, LeavesTrailersOut) {
  RawServer server(
      AnswerWith("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nHTTP/x: t\r\n"
                 "Location: /x\r\n\r\n"));
  Transport transport;
  const auto response = transport.Fetch(server.url("/"));
  EXPECT_TRUE(response->success);
  EXPECT_THAT(response->headers, ElementsAre(Pair("Transfer-Encoding", "chunked")));
}

// Transfers that hang, drip and flood at once.
TEST(BrokenServerTest, HoldsUpNoOtherTransfer) {
  Transport transport;
  RawServer silent(NeverAnswers());
  RawServer dripping(Drips(std::chrono::milliseconds(10)));
  RawServer flooding(EndlessBody());
  std::vector<std::future<ResponsePtr>> stuck;
  for (int i = 0; i < 20; ++i) {
    stuck.push_back(transport.Start(Get(silent.url("/"))));
    stuck.push_back(transport.Start(Get(dripping.url("/"))));
    stuck.push_back(transport.Start(Get(flooding.url("/"))));
  }
  RawServer good(AnswerWith(AnswerOf("", "good")));
  EXPECT_EQ(transport.Fetch(Get(good.url("/"), 5'000))->body_text, "good");
  EXPECT_EQ(stuck.front().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

}  // namespace
