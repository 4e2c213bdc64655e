#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "tests/support/raw_server.h"

namespace tarvel_bench {

// The delay of each of `count` answers: 200 ms for 10 %, 500 ms for 5 % and 1,000 ms for 1 % of
// them. The same seed gives the same delays.
inline std::vector<std::chrono::milliseconds> DrawDelays(std::size_t count, unsigned seed) {
  std::mt19937 engine(seed);
  std::vector<std::chrono::milliseconds> delays(count);
  for (auto& delay : delays) {
    const auto percent = engine() % 100;
    delay = std::chrono::milliseconds(percent < 1    ? 1'000
                                      : percent < 6  ? 500
                                      : percent < 16 ? 200
                                                     : 0);
  }
  return delays;
}

// A server that answers the request for "/i" after the i-th of its delays, and numbers beyond them
// at once. Each connection has its own thread, so that no request waits for another.
class DelayingServer {
 public:
  DelayingServer(std::size_t count, unsigned seed) : delays_(DrawDelays(count, seed)) {}

  std::string url() const { return server_.url("/"); }
  int requests() const { return requests_; }  // So far, those beyond the delays included.

 private:
  void Converse(test_support::RawConnection& connection) {
    constexpr std::size_t kNumberAt = sizeof "GET /" - 1;
    std::string request;
    while ((request = connection.ReadRequest()).size() > kNumberAt) {
      ++requests_;
      const std::size_t number = std::strtoul(request.c_str() + kNumberAt, nullptr, 10);
      const bool held = number < delays_.size() && delays_[number].count() > 0;
      if (held && connection.AwaitStop(delays_[number])) return;
      if (!connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood")) return;
    }
  }

  const std::vector<std::chrono::milliseconds> delays_;
  std::atomic<int> requests_{0};
  test_support::RawServer server_{
      [this](test_support::RawConnection& connection) { Converse(connection); }};  // Last.
};

}  // namespace tarvel_bench
