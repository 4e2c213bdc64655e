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

// So many zeros as gzip writes them: 64 MiB come to some 64 KiB.
std::string GzippedZeros(std::size_t count) {
  const TempDirectory directory;
  const std::string command =
      "head -c " + std::to_string(count) + " /dev/zero | gzip -9 > '" + directory.path() + "/gz'";
  EXPECT_EQ(std::system(command.c_str()), 0);
  return ReadFile(directory / "gz");
}

std::string AnswerOf(const std::string& headers, const std::string& body) {
  return HttpAnswer("200 OK", body, headers);
}

constexpr char kGzip[] = "Content-Encoding: gzip\r\n";
constexpr char kEndless[] = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n";

// A beginning, and then the same block as fast as the peer reads, or after each interval.
RawServer::Handler Repeats(std::string begin, std::string block, int interval_ms = 0) {
  return [=](RawConnection& connection) {
    connection.ReadRequest();
    const std::chrono::milliseconds interval(interval_ms);
    bool sent = connection.Send(begin);
    while (sent && !connection.AwaitStop(interval)) sent = connection.Send(block);
  };
}

TEST(BrokenServerTest, EndsInAnErrorTextWhateverTheServerDoes) {
  const struct {
    std::string name;
    RawServer::Handler handler;
    std::string error;
    bool at_time_out;
  } rows[] = {
      {"never answers", NeverAnswers(), "timed out", true},
      {"drips", Repeats(kEndless, "x", 50), "timed out", true},
      {"resets in mid-body",
       [](RawConnection& connection) {
         connection.ReadRequest();
         connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nthe beginning");
         connection.Reset();
       },
       "reset", false},
      {"closes in mid-body", AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"),
       "remaining", false},
      {"half a status line", AnswerWith("HTTP/1."), "", false},
      {"closes at once", [](RawConnection&) {}, "", false},
      {"not HTTP", AnswerWith("SSH-2.0-server\r\n\r\n"), "HTTP/0.9", false},
      {"endless body", Repeats(kEndless, std::string(65536, 'x')), "longer than 8388608", false},
      {"endless headers",
       Repeats("HTTP/1.1 200 OK\r\n", "X-Filler: " + std::string(1000, 'x') + "\r\n"),
       "longer than 262144", false},
      {"a body too long", AnswerWith(AnswerOf("", std::string(kLongestBody + 1, 'x'))),
       "longer than 8388608", false},
      {"a bomb", AnswerWith(AnswerOf(kGzip, GzippedZeros(1 << 26))), "longer than 8388608", false},
      {"a broken encoding", AnswerWith(AnswerOf(kGzip, "no gzip")), "", false},
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

TEST(BrokenServerTest, TakesWhatIsJustWithinTheLimitsAndLeavesOutInterimHeadersAndTrailers) {
  Transport transport;
  RawServer longest(AnswerWith(AnswerOf("", std::string(kLongestBody, 'x'))));
  EXPECT_EQ(transport.Fetch(longest.url("/"))->body.size(), kLongestBody);
  RawServer gzipped(AnswerWith(AnswerOf(kGzip, GzippedZeros(100'000))));
  EXPECT_EQ(transport.Fetch(gzipped.url("/"))->body_text, std::string(100'000, '\0'));
  RawServer interim(AnswerWith("HTTP/1.1 103 Early Hints\r\nA: early\r\n\r\n" +
                               AnswerOf("B: 1\r\nA: b\r\n folded\r\nB: 2\r\n", "c\0d"s)));
  const auto response = transport.Fetch(interim.url("/"));
  EXPECT_THAT(response->headers, ElementsAre(Pair("B", "1"), Pair("A", "b folded"), Pair("B", "2"),
                                             Pair("Content-Length", "3")));
  EXPECT_EQ(response->body, Bytes("c\0d"s));
  RawServer trailing(
      AnswerWith("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nHTTP/x: t\r\n"
                 "Location: /x\r\n\r\n"));
  const auto trailed = transport.Fetch(trailing.url("/"));
  EXPECT_TRUE(trailed->success);
  EXPECT_THAT(trailed->headers, ElementsAre(Pair("Transfer-Encoding", "chunked")));
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

// Transfers that hang, drip and flood at once.
TEST(BrokenServerTest, HoldsUpNoOtherTransfer) {
  Transport transport;
  RawServer silent(NeverAnswers());
  RawServer dripping(Repeats(kEndless, "x", 10));
  RawServer flooding(Repeats(kEndless, std::string(65536, 'x')));
  std::vector<std::future<ResponsePtr>> stuck;
  for (int i = 0; i < 20; ++i) {
    stuck.push_back(transport.Start(Get(silent.url("/"))));
    stuck.push_back(transport.Start(Get(dripping.url("/"))));
  }
  // Few: what they send keeps the processor busy in an instrumented build.
  for (int i = 0; i < 3; ++i) stuck.push_back(transport.Start(Get(flooding.url("/"))));
  RawServer good(AnswerWith(AnswerOf("", "good")));
  EXPECT_EQ(transport.Fetch(Get(good.url("/"), 20'000))->body_text, "good");
  EXPECT_EQ(stuck.front().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

}  // namespace
