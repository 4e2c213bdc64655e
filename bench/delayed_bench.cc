#include <benchmark/benchmark.h>
#include <uv.h>

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <random>
#include <semaphore>
#include <vector>

#include "bench/workers.h"

namespace tarvel_bench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::int64_t kTimers = 100'000;

// The same delays in every program run: `base_ms` plus 1 to 100 ms.
std::vector<std::int32_t> SpreadDelays(std::int32_t base_ms) {
  std::minstd_rand random(20'240'229);
  std::vector<std::int32_t> delays(kTimers);
  for (auto& delay : delays) delay = base_ms + 1 + static_cast<std::int32_t>(random() % 100);
  return delays;
}

// The tasks' counter. Only the worker touches `run`.
struct Batch {
  std::int64_t run = 0;
  std::binary_semaphore all_have_run{0};

  void RunOne() {
    benchmark::DoNotOptimize(++run);
    if (run == kTimers) all_have_run.release();
  }
};

// Each contender adds one timer by `Add`, on the worker's thread or, except for libuv, on another.
// Storage that a user would keep is allocated before.
class TaskThreadTimers {
 public:
  TaskThreadWorker& worker() { return worker_; }
  void Add(std::int32_t delay_ms, Batch& batch) {
    worker_.thread().PostDelayedTask(delay_ms, [batch = &batch] { batch->RunOne(); });
  }

 private:
  TaskThreadWorker worker_;
};

class AsioTimers {
 public:
  AsioTimers() { timers_.reserve(kTimers); }
  AsioWorker& worker() { return worker_; }
  void Add(std::int32_t delay_ms, Batch& batch) {
    timers_.emplace_back(worker_.io(), milliseconds(delay_ms))
        .async_wait([batch = &batch](const boost::system::error_code& error) {
          if (!error) batch->RunOne();
        });
  }

 private:
  AsioWorker worker_;
  std::vector<boost::asio::steady_timer> timers_;
};

class UvTimers {
 public:
  UvWorker& worker() { return worker_; }
  void Add(std::int32_t delay_ms, Batch& batch) {
    uv_timer_t& timer = timers_[added_++];
    uv_timer_init(worker_.loop(), &timer);
    timer.data = &batch;
    uv_timer_start(
        &timer, [](uv_timer_t* due) { static_cast<Batch*>(due->data)->RunOne(); },
        static_cast<std::uint64_t>(delay_ms), /*repeat=*/0);
  }

 private:
  std::vector<uv_timer_t> timers_{kTimers};  // The loop refers to them to its end.
  std::size_t added_ = 0;
  UvWorker worker_;
};

struct FromOutside {
  template <class Timers>
  static void AddAll(Timers& timers, const std::vector<std::int32_t>& delays, Batch& batch) {
    for (const auto delay : delays) timers.Add(delay, batch);
  }
};

// Posts one task that adds them all, and waits for it.
struct OnTheLoop {
  template <class Timers>
  static void AddAll(Timers& timers, const std::vector<std::int32_t>& delays, Batch& batch) {
    std::binary_semaphore added{0};
    timers.worker().Post([&] {
      FromOutside::AddAll(timers, delays, batch);
      added.release();
    });
    added.acquire();
  }
};

template <class Timers>
void AwaitRunning(Timers& timers) {
  std::binary_semaphore has_run{0};
  timers.worker().Post([&has_run] { has_run.release(); });
  has_run.acquire();
}

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double ProcessCpuMilliseconds() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) * 1e-6;
}

// Time to post 100,000 delayed tasks. None becomes due during the measurement.
template <class Timers, class Way>
void BM_PostDelayed(benchmark::State& state) {
  const auto delays = SpreadDelays(60'000);
  double cpu_ms = 0;
  for (auto _ : state) {
    Batch batch;
    Timers timers;
    AwaitRunning(timers);
    const double cpu_begin = ProcessCpuMilliseconds();
    const auto begin = Clock::now();
    Way::AddAll(timers, delays, batch);
    state.SetIterationTime(SecondsSince(begin));
    cpu_ms += ProcessCpuMilliseconds() - cpu_begin;
  }
  state.SetItemsProcessed(state.iterations() * kTimers);
  state.counters["cpu_ms"] = benchmark::Counter(cpu_ms, benchmark::Counter::kAvgIterations);
}

// The cost of 100,000 delayed tasks from the first post to the end of the last, at least 100 ms
// later. `cpu_ms` is the CPU time of the whole process.
template <class Timers, class Way>
void BM_PostDelayedAndRun(benchmark::State& state) {
  const auto delays = SpreadDelays(0);
  double cpu_ms = 0;
  for (auto _ : state) {
    Batch batch;
    Timers timers;
    AwaitRunning(timers);
    const double cpu_begin = ProcessCpuMilliseconds();
    const auto begin = Clock::now();
    Way::AddAll(timers, delays, batch);
    batch.all_have_run.acquire();
    state.SetIterationTime(SecondsSince(begin));
    cpu_ms += ProcessCpuMilliseconds() - cpu_begin;
  }
  state.counters["cpu_ms"] = benchmark::Counter(cpu_ms, benchmark::Counter::kAvgIterations);
}

void InMilliseconds(benchmark::internal::Benchmark* bench) {
  bench->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_TEMPLATE(BM_PostDelayed, TaskThreadTimers, FromOutside)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayed, AsioTimers, FromOutside)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayed, TaskThreadTimers, OnTheLoop)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayed, AsioTimers, OnTheLoop)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayed, UvTimers, OnTheLoop)->Apply(InMilliseconds);

BENCHMARK_TEMPLATE(BM_PostDelayedAndRun, TaskThreadTimers, FromOutside)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayedAndRun, AsioTimers, FromOutside)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayedAndRun, TaskThreadTimers, OnTheLoop)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayedAndRun, AsioTimers, OnTheLoop)->Apply(InMilliseconds);
BENCHMARK_TEMPLATE(BM_PostDelayedAndRun, UvTimers, OnTheLoop)->Apply(InMilliseconds);

}  // namespace
}  // namespace tarvel_bench
