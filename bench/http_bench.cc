#include <benchmark/benchmark.h>
#include <malloc.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "bench/http_ways.h"
#include "bench/process_cpu.h"
#include "bench/relay.h"
#include "tests/support/certificate_authority.h"
#include "tests/support/nginx_server.h"

namespace tarvel_bench {
namespace {

using Clock = std::chrono::steady_clock;
using test_support::ListeningSocket;
using test_support::NginxListener;

enum Protocol : std::size_t { kHttp, kHttps, kHttp2 };  // The listeners of the server, in order.

// The upstream of requests that the server must not answer yet. Only one benchmark accepts its
// connections.
const ListeningSocket& HeldSocket() {
  static const ListeningSocket socket("127.0.0.1");
  return socket;
}

const test_support::NginxServer& Server() {
  static test_support::CertificateAuthority authority;
  static const auto certificate = authority.Issue({"127.0.0.1"});
  static const test_support::NginxServer server(
      {.listeners = {NginxListener{}, NginxListener{.certificate = certificate},
                     NginxListener{.certificate = certificate, .http2 = true}},
       .files = {{"answer", std::string(kAnswerSize, 'x')}},
       .server_text = "access_log off;\nkeepalive_requests 1000000000;\n"
                      "location /held { proxy_pass http://127.0.0.1:" +
                      std::to_string(HeldSocket().port()) + "; }"});
  return server;
}

// Nanoseconds of the steady clock.
using Latencies = std::vector<std::int64_t>;

double MedianMicroseconds(Latencies& latencies) {
  const auto middle = latencies.begin() + static_cast<std::ptrdiff_t>(latencies.size() / 2);
  std::nth_element(latencies.begin(), middle, latencies.end());
  return static_cast<double>(*middle) / 1e3;
}

// Runs `step` in each iteration, and reports the median of its time next to the mean.
template <class Step>
void MeasureOneByOne(benchmark::State& state, const Step& step) {
  Latencies latencies;
  latencies.reserve(state.max_iterations);
  const double cpu_before = ProcessCpuMicroseconds();
  for (auto _ : state) {
    const auto begin = Clock::now();
    step();
    latencies.push_back((Clock::now() - begin).count());
  }
  const auto iterations = static_cast<double>(state.iterations());
  state.counters["cpu_us"] = (ProcessCpuMicroseconds() - cpu_before) / iterations;
  state.counters["median_us"] = MedianMicroseconds(latencies);
  state.SetItemsProcessed(state.iterations());
}

// Time of one request on an open connection, with nothing else in flight.
template <class Way, Protocol kProtocol>
void BM_OneAtATime(benchmark::State& state) {
  Way way(Server().url("/answer", kProtocol), 1);
  bool whole = way.GetAll(1) == 1;
  MeasureOneByOne(state, [&] { whole = way.GetAll(1) == 1 && whole; });
  if (!whole) state.SkipWithError("a request was not answered");
}

// The part of it that the way through two more threads and back takes.
void BM_Hops(benchmark::State& state) {
  Relay relay([] {});
  MeasureOneByOne(state, [&] { relay.GoAndReturn(); });
}

// The same when the threads fall asleep, as they do while a server works: the far thread does a
// transfer. BM_OneAtATime<CurlEasy, ...> is the transfer alone.
template <Protocol kProtocol>
void BM_HopsToCurlEasy(benchmark::State& state) {
  CurlEasy easy(Server().url("/answer", kProtocol), 1);
  bool whole = easy.GetAll(1) == 1;
  Relay relay([&] { whole = easy.GetAll(1) == 1 && whole; });
  MeasureOneByOne(state, [&] { relay.GoAndReturn(); });
  if (!whole) state.SkipWithError("a request was not answered");
}

// Requests per second with 32 in flight.
template <class Way, Protocol kProtocol>
void BM_ThirtyTwoInFlight(benchmark::State& state) {
  constexpr std::size_t kInFlight = 32;
  constexpr std::size_t kRequests = 3200;  // So that the end, with fewer in flight, hardly counts.
  Way way(Server().url("/answer", kProtocol), kInFlight);
  bool whole = way.GetAll(kInFlight) == kInFlight;
  const double cpu_before = ProcessCpuMicroseconds();
  for (auto _ : state) whole = way.GetAll(kRequests) == kRequests && whole;
  const auto requests = state.iterations() * static_cast<std::int64_t>(kRequests);
  state.counters["cpu_us"] =
      (ProcessCpuMicroseconds() - cpu_before) / static_cast<double>(requests);
  state.SetItemsProcessed(requests);
  if (!whole) state.SkipWithError("a request was not answered");
}

// Accepts what the server passes on. When the connections are closed, the server answers.
class HeldRequests {
 public:
  ~HeldRequests() {
    for (const int connection : connections_) close(connection);
  }

  void TakeUpSome() {
    constexpr int kPatienceMs = 5;
    pollfd listening{HeldSocket().fd(), POLLIN, 0};
    if (poll(&listening, 1, kPatienceMs) == 1) {
      const int connection = accept4(listening.fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (connection >= 0) connections_.push_back(connection);
    }
  }
  std::size_t count() const { return connections_.size(); }

 private:
  std::vector<int> connections_;
};

double ResidentMebibytes() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "VmRSS:") continue;
  double kibibytes = 0;
  status >> kibibytes;
  return kibibytes / 1024;
}

// How much the resident memory grows from before the client exists until 200 requests wait for
// their answers; the second figure is what remains after the client. One such benchmark per
// process: the next one would find what the first has left.
template <class Way, Protocol kProtocol>
void BM_MemoryOfHeldRequests(benchmark::State& state) {
  constexpr std::size_t kRequests = 200;
  const std::string url = Server().url("/held", kProtocol);
  malloc_trim(0);
  const double before = ResidentMebibytes();
  for (auto _ : state) {
    Way way(url, kRequests);
    HeldRequests held;
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    way.Begin(kRequests);
    while (held.count() < kRequests && Clock::now() < deadline) {
      way.Work();
      held.TakeUpSome();
    }
    if (held.count() < kRequests) state.SkipWithError("the requests did not reach the server");
    state.counters["in_flight_MiB"] = ResidentMebibytes() - before;
  }
  state.counters["left_MiB"] = ResidentMebibytes() - before;
}

// Registers `what` for each protocol, with the CPU time of all threads.
#define TARVEL_BENCHMARK(what, way)                                              \
  BENCHMARK_TEMPLATE(what, way, kHttp)->MeasureProcessCPUTime()->UseRealTime();  \
  BENCHMARK_TEMPLATE(what, way, kHttps)->MeasureProcessCPUTime()->UseRealTime(); \
  BENCHMARK_TEMPLATE(what, way, kHttp2)->MeasureProcessCPUTime()->UseRealTime()

TARVEL_BENCHMARK(BM_OneAtATime, Client);
TARVEL_BENCHMARK(BM_OneAtATime, CurlEasy);
TARVEL_BENCHMARK(BM_OneAtATime, CurlMulti);

BENCHMARK(BM_Hops)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_TEMPLATE(BM_HopsToCurlEasy, kHttp)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_TEMPLATE(BM_HopsToCurlEasy, kHttps)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_TEMPLATE(BM_HopsToCurlEasy, kHttp2)->MeasureProcessCPUTime()->UseRealTime();

TARVEL_BENCHMARK(BM_ThirtyTwoInFlight, Client);
TARVEL_BENCHMARK(BM_ThirtyTwoInFlight, CurlMulti);
TARVEL_BENCHMARK(BM_ThirtyTwoInFlight, CurlMultiWaiting);

#define TARVEL_MEMORY_BENCHMARK(what, way)              \
  BENCHMARK_TEMPLATE(what, way, kHttp)->Iterations(1);  \
  BENCHMARK_TEMPLATE(what, way, kHttps)->Iterations(1); \
  BENCHMARK_TEMPLATE(what, way, kHttp2)->Iterations(1)

TARVEL_MEMORY_BENCHMARK(BM_MemoryOfHeldRequests, Client);
TARVEL_MEMORY_BENCHMARK(BM_MemoryOfHeldRequests, CurlMulti);

}  // namespace
}  // namespace tarvel_bench
