#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "bench/agent_ways.h"
#include "bench/delay_mix.h"
#include "bench/http_ways.h"
#include "bench/process_cpu.h"
#include "bench/relay.h"
#include "tarvel/http_agent/logic/multiple_url_http_request_helper.h"
#include "tests/support/nginx_server.h"
#include "tests/support/raw_server.h"

namespace tarvel_bench {
namespace {

using Clock = std::chrono::steady_clock;
using zo_tarvel::MultipleURLHttpRequest;

// Of the walk, in milliseconds: the shortest that an environment lets its client set.
constexpr std::int32_t kMultipleTimeOut = 200;
constexpr std::int32_t kTimeOut = 1'000;

const test_support::NginxServer& Server() {
  static const test_support::NginxServer server(
      {.files = {{"answer", std::string(kAnswerSize, 'x')}},
       .server_text = "access_log off;\nkeepalive_requests 1000000000;\n"});
  return server;
}

double MillisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// The quantile: the smallest value that at least `share` of them do not exceed.
double Quantile(std::vector<double> values, double share) {
  const auto rank = static_cast<std::size_t>(share * static_cast<double>(values.size()) - 1e-6);
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(rank),
                   values.end());
  return values[rank];
}

// Requests per second and CPU time per request, with as many in flight as the argument says. The
// first URL is good.
template <class Way>
void BM_InFlight(benchmark::State& state) {
  const auto in_flight = static_cast<std::size_t>(state.range(0));
  const std::size_t count =
      in_flight * 100;  // So that the end, with fewer in flight, hardly counts.
  Way way(Server().url("/answer"), in_flight);
  bool whole = way.GetAll(in_flight) == in_flight;
  const double cpu_before = ProcessCpuMicroseconds();
  for (auto _ : state) whole = way.GetAll(count) == count && whole;
  const auto requests = state.iterations() * static_cast<std::int64_t>(count);
  state.counters["cpu_us"] =
      (ProcessCpuMicroseconds() - cpu_before) / static_cast<double>(requests);
  state.SetItemsProcessed(requests);
  if (!whole) state.SkipWithError("a request was not answered");
}

// Three URLs: one that never answers, one where nobody listens, and a good one.
class TroubledSites {
 public:
  std::vector<std::string> urls() const {
    return {silent_.url("/answer"), "http://127.0.0.1:1/answer", Server().url("/answer")};
  }

 private:
  test_support::RawServer silent_{test_support::NeverAnswers()};
};

// By the agent. Returns how many answers were whole.
class StagedWalk {
 public:
  explicit StagedWalk(const std::vector<std::string>& urls) {
    for (const std::string& url : urls) request_.urls.push_back({"", url});
    request_.multiple_time_out = kMultipleTimeOut;
    request_.time_out = kTimeOut;
    request_.result_callback = [this](bool, bool success, auto&&, const std::string& body) {
      done_.Put(success && body.size() == kAnswerSize);
    };
  }
  bool Get() {
    scope_.InvokeHttpRequest(request_, true);
    return done_.Take();
  }

 private:
  MultipleURLHttpRequest request_ = RequestFor200();
  Mailbox<bool> done_;
  AgentScope<Log::kFile> scope_;  // Last: its threads use the rest.
};

// By libcurl, one URL after the other.
class DownTheList {
 public:
  explicit DownTheList(const std::vector<std::string>& urls) {
    for (const std::string& url : urls) {
      curl_easy_setopt(handles_.emplace_back(url).get(), CURLOPT_TIMEOUT_MS, long{kTimeOut});
    }
  }
  bool Get() {
    return std::any_of(handles_.begin(), handles_.end(), [](ReusedHandle& handle) {
      handle.Clear();
      return handle.IsWhole(curl_easy_perform(handle.get()));
    });
  }

 private:
  std::list<ReusedHandle> handles_;
};

// Time until the good answer when the URLs before it are bad.
template <class Way>
void BM_TimeToTheGoodAnswer(benchmark::State& state) {
  TroubledSites sites;
  Way way(sites.urls());
  bool whole = true;
  std::vector<double> latencies;
  for (auto _ : state) {
    const auto begin = Clock::now();
    whole = way.Get() && whole;
    latencies.push_back(MillisecondsSince(begin));
  }
  state.counters["median_ms"] = Quantile(latencies, 0.5);
  state.counters["min_ms"] = *std::min_element(latencies.begin(), latencies.end());
  state.counters["max_ms"] = *std::max_element(latencies.begin(), latencies.end());
  if (!whole) state.SkipWithError("there was no good answer");
}

// Sends logical requests numbered from 0, at most `in_flight` at a time. Each has the number in its
// path and goes over all `sites`. Records how long each takes, from the call to the result.
class NumberedRequests {
 public:
  NumberedRequests(std::vector<std::string> sites, std::size_t in_flight)
      : sites_(std::move(sites)), in_flight_(in_flight) {}

  // Those from `begin` up to `end`, in milliseconds. Empty when one failed.
  std::vector<double> Run(std::size_t begin, std::size_t end) {
    const std::size_t begun = begin + std::min(in_flight_, end - begin);
    next_ = begun;
    end_ = end;
    unanswered_ = end - begin;
    latencies_.clear();
    failed_ = false;
    for (std::size_t number = begin; number < begun; ++number) Send(number);
    done_.Take();
    return failed_ ? std::vector<double>() : latencies_;
  }

 private:
  void Send(std::size_t number) {
    MultipleURLHttpRequest request = RequestFor200();
    request.multiple_time_out = kMultipleTimeOut;
    for (const std::string& site : sites_) {
      request.urls.push_back({"", site + std::to_string(number)});
    }
    request.result_callback = [this, begin = Clock::now()](bool, bool success, auto&&...) {
      OnResult(success, MillisecondsSince(begin));
    };
    scope_.InvokeHttpRequest(request, true);
  }
  void OnResult(bool success, double milliseconds) {
    if (!success) failed_ = true;
    latencies_.push_back(milliseconds);
    if (next_ < end_) Send(next_++);
    if (--unanswered_ == 0) done_.Put(true);
  }

  const std::vector<std::string> sites_;
  const std::size_t in_flight_;
  // Not locked: set before the first request is sent, then touched on the agent's thread only,
  // until that has put `done_`.
  std::size_t next_ = 0;
  std::size_t end_ = 0;
  std::size_t unanswered_ = 0;
  std::vector<double> latencies_;
  bool failed_ = false;
  Mailbox<bool> done_;
  AgentScope<Log::kFile> scope_;  // Last: its threads use the rest.
};

// The latency distribution when some answers are slow (see DrawDelays). The first argument is the
// number of URLs, the second the seed of the draw.
//
// A walk cannot help when the second URL is slow too. On average that makes 0.96 % of the requests
// "late": they take over 1.1 times the head start of the first URL. With one URL, 1 % take the
// longest delay. Both lie at the edge of the 99th percentile, so the draw decides which side they
// are on.
void BM_DelayMix(benchmark::State& state) {
  constexpr std::size_t kRequests = 2'000;
  constexpr std::size_t kInFlight = 50;
  const auto draw = static_cast<unsigned>(state.range(1));
  std::list<DelayingServer> servers;
  std::vector<std::string> sites;
  for (unsigned i = 0; i < static_cast<unsigned>(state.range(0)); ++i) {
    sites.push_back(servers.emplace_back(kRequests, draw * 10 + i).url());
  }
  NumberedRequests requests(sites, kInFlight);
  requests.Run(kRequests,
               2 * kRequests);  // Opens the connections; the server delays none of these.
  std::vector<double> latencies;
  for (auto _ : state) latencies = requests.Run(0, kRequests);
  if (latencies.empty()) return state.SkipWithError("a request failed");
  double sub_requests = -static_cast<double>(kRequests);
  for (const DelayingServer& server : servers) sub_requests += server.requests();
  const auto percent_of_all = [](double count) { return count / kRequests * 100; };
  state.counters["p50_ms"] = Quantile(latencies, 0.5);
  state.counters["p90_ms"] = Quantile(latencies, 0.9);
  state.counters["p99_ms"] = Quantile(latencies, 0.99);
  state.counters["p99.9_ms"] = Quantile(latencies, 0.999);
  state.counters["late_%"] = percent_of_all(
      static_cast<double>(std::count_if(latencies.begin(), latencies.end(), [](double latency) {
        return latency > 1.1 * kMultipleTimeOut;
      })));
  state.counters["extra_%"] = percent_of_all(sub_requests - kRequests);
}

MultipleURLHttpRequest RequestOverUrls(std::int64_t count) {
  MultipleURLHttpRequest request = RequestFor200();
  for (std::int64_t i = 0; i < count; ++i) {
    const std::string host = "host" + std::to_string(i) + ".example.com";
    request.urls.push_back({host, "https://" + host + "/a/path/of/some/length"});
  }
  return request;
}

// The cost of accepting a request with as many URLs as the argument says, with the URL lists that
// go to the log. BM_CopyRequest is the copy alone.
template <Log kLog>
void BM_SetRequest(benchmark::State& state) {
  AgentScope<kLog> scope;
  const auto config = scope.GetEnvironmentConfig();
  const MultipleURLHttpRequest request = RequestOverUrls(state.range(0));
  for (auto _ : state) {
    zo_tarvel::MultipleURLHttpRequestHelper helper;
    helper.SetEnvironmentConfig(config);
    helper.SetRequest(request);
    benchmark::DoNotOptimize(&helper);
  }
}

void BM_CopyRequest(benchmark::State& state) {
  const MultipleURLHttpRequest request = RequestOverUrls(state.range(0));
  for (auto _ : state) {
    MultipleURLHttpRequest copy = request;
    benchmark::DoNotOptimize(copy);
  }
}

#define TARVEL_IN_FLIGHT(...)                  \
  BENCHMARK_TEMPLATE(BM_InFlight, __VA_ARGS__) \
      ->Arg(1)                                 \
      ->Arg(32)                                \
      ->MeasureProcessCPUTime()                \
      ->UseRealTime()
TARVEL_IN_FLIGHT(Agent<Log::kNowhere>);
TARVEL_IN_FLIGHT(Agent<Log::kDropped>);
TARVEL_IN_FLIGHT(Agent<Log::kUnopenable>);
TARVEL_IN_FLIGHT(Agent<Log::kFile>);
TARVEL_IN_FLIGHT(Client);
TARVEL_IN_FLIGHT(CurlMulti);

BENCHMARK_TEMPLATE(BM_TimeToTheGoodAnswer, StagedWalk)
    ->Iterations(20)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_TimeToTheGoodAnswer, DownTheList)
    ->Iterations(5)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK(BM_DelayMix)
    ->ArgNames({"urls", "draw"})
    ->ArgsProduct({{3, 1}, {1, 2, 3, 4, 5}})
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

#define TARVEL_SET_REQUEST(log) BENCHMARK_TEMPLATE(BM_SetRequest, log)->Arg(1)->Arg(60)
TARVEL_SET_REQUEST(Log::kNowhere);
TARVEL_SET_REQUEST(Log::kDropped);
TARVEL_SET_REQUEST(Log::kUnopenable);
TARVEL_SET_REQUEST(Log::kFile);
BENCHMARK(BM_CopyRequest)->Arg(1)->Arg(60);

}  // namespace
}  // namespace tarvel_bench
