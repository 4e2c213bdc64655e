#include <benchmark/benchmark.h>

#include <barrier>
#include <cstdint>
#include <semaphore>
#include <thread>
#include <vector>

#include "bench/workers.h"

namespace tarvel_bench {
namespace {

constexpr std::int64_t kPosts = 200'000;  // In one batch, by all producers together.

// The tasks' counter. Only the worker touches `run`, so a task costs next to nothing and the last
// one knows that it is the last.
struct Batch {
  std::int64_t run = 0;
  std::binary_semaphore all_have_run{0};

  void RunOne() {
    benchmark::DoNotOptimize(++run);
    if (run == kPosts) all_have_run.release();
  }
};

template <class Worker>
void PostShare(Worker& worker, Batch& batch, std::int64_t producers) {
  for (std::int64_t i = 0; i < kPosts / producers; ++i) {
    worker.Post([batch = &batch] { batch->RunOne(); });
  }
}

// Posts per second that one worker runs. A batch lasts from its first post to the end of its last
// task.
template <class Worker>
void BM_PostAndRun(benchmark::State& state) {
  const std::int64_t producers = state.range(0);
  Worker worker;
  Batch batch;
  bool ended = false;  // Ordered by the barrier.
  std::barrier begin(producers);

  // This thread is one of the producers; the others wait at the barrier for each batch.
  std::vector<std::jthread> others;
  for (std::int64_t i = 1; i < producers; ++i) {
    others.emplace_back([&] {
      while (true) {
        begin.arrive_and_wait();
        if (ended) return;
        PostShare(worker, batch, producers);
      }
    });
  }
  for (auto _ : state) {
    batch.run = 0;
    begin.arrive_and_wait();
    PostShare(worker, batch, producers);
    batch.all_have_run.acquire();
  }
  ended = true;
  begin.arrive_and_wait();
  state.SetItemsProcessed(state.iterations() * kPosts);
}

void ForOneAndFourProducers(benchmark::internal::Benchmark* bench) {
  bench->ArgName("producers")->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_TEMPLATE(BM_PostAndRun, TaskThreadWorker)->Apply(ForOneAndFourProducers);
BENCHMARK_TEMPLATE(BM_PostAndRun, TaskLoopWorker)->Apply(ForOneAndFourProducers);
BENCHMARK_TEMPLATE(BM_PostAndRun, AsioWorker)->Apply(ForOneAndFourProducers);
BENCHMARK_TEMPLATE(BM_PostAndRun, UvWorker)->Apply(ForOneAndFourProducers);
BENCHMARK_TEMPLATE(BM_PostAndRun, QueueWorker)->Apply(ForOneAndFourProducers);
BENCHMARK_TEMPLATE(BM_PostAndRun, SwappedQueueWorker)->Apply(ForOneAndFourProducers);

}  // namespace
}  // namespace tarvel_bench
