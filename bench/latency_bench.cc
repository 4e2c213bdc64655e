#include <benchmark/benchmark.h>

#include <chrono>
#include <semaphore>

#include "bench/workers.h"

namespace tarvel_bench {
namespace {

using Clock = std::chrono::steady_clock;

template <class Worker>
void PostAndAwait(Worker& worker, std::binary_semaphore& has_run) {
  worker.Post([&has_run] { has_run.release(); });
  has_run.acquire();
}

// Time from a post to the notice that the task has run, back to back. The worker is idle, but may
// not be asleep yet when the next post comes.
template <class Worker>
void BM_PingPong(benchmark::State& state) {
  Worker worker;
  std::binary_semaphore has_run{0};
  for (auto _ : state) PostAndAwait(worker, has_run);
}

// The same for a worker that sleeps: each post waits, untimed, until the worker has fallen asleep.
template <class Worker>
void BM_PingPongWithSleeper(benchmark::State& state) {
  constexpr std::chrono::microseconds kTimeToFallAsleep{50};
  Worker worker;
  std::binary_semaphore has_run{0};
  for (auto _ : state) {
    const auto rest_end = Clock::now() + kTimeToFallAsleep;
    while (Clock::now() < rest_end) {
    }
    const auto begin = Clock::now();
    PostAndAwait(worker, has_run);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
  }
}

BENCHMARK_TEMPLATE(BM_PingPong, TaskThreadWorker)->UseRealTime();
BENCHMARK_TEMPLATE(BM_PingPong, AsioWorker)->UseRealTime();
BENCHMARK_TEMPLATE(BM_PingPong, UvWorker)->UseRealTime();
BENCHMARK_TEMPLATE(BM_PingPong, QueueWorker)->UseRealTime();
BENCHMARK_TEMPLATE(BM_PingPong, SwappedQueueWorker)->UseRealTime();

BENCHMARK_TEMPLATE(BM_PingPongWithSleeper, TaskThreadWorker)->UseManualTime();
BENCHMARK_TEMPLATE(BM_PingPongWithSleeper, AsioWorker)->UseManualTime();
BENCHMARK_TEMPLATE(BM_PingPongWithSleeper, UvWorker)->UseManualTime();
BENCHMARK_TEMPLATE(BM_PingPongWithSleeper, QueueWorker)->UseManualTime();
BENCHMARK_TEMPLATE(BM_PingPongWithSleeper, SwappedQueueWorker)->UseManualTime();

}  // namespace
}  // namespace tarvel_bench
