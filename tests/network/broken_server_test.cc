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
using testing::HasSubstr;
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

TEST(BrokenServerTest, TakesWhatIsWithinTheLimitsWithoutInterimHeadersAndTrailers) {
  const std::string interim = "HTTP/1.1 103 Early Hints\r\nEarly: 1\r\n\r\n";
  const std::string longest(kLongestBody, 'x');
  const struct {
    std::string answer;
    int status;
    std::string body, header_names;
  } rows[] = {
      {AnswerOf("", longest), 200, longest, "Content-Length "},
      {AnswerOf(kGzip, GzippedZeros(100'000)), 200, std::string(100'000, '\0'),
       "Content-Encoding Content-Length "},
      {interim + AnswerOf("B: 1\r\nA: b\r\n folded\r\nB: 2\r\n", "c\0d"s), 200, "c\0d"s,
       "B A B Content-Length "},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nHTTP/x: t\r\n\r\n", 200, "",
       "Transfer-Encoding "},
      {"HTTP/1.1 404 No\r\nContent-Length: 10\r\n\r\nhalf", 404, "half", "Content-Length "},
      {interim, 0, "", ""},
  };
  Transport transport;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.answer.substr(0, 100));
    RawServer server(AnswerWith(row.answer));
    const auto response = transport.Fetch(server.url("/"));
    EXPECT_EQ(response->status, row.status);
    EXPECT_EQ(response->success && response->error_text.empty(), row.status == 200);
    EXPECT_TRUE(response->body == Bytes(row.body) && response->body_text == row.body);
    std::string names;
    for (const auto& [name, value] : response->headers) {
      names += name + " ";
      EXPECT_TRUE(name != "A" || value == "b folded") << value;
    }
    EXPECT_EQ(names, row.header_names);
  }
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
