#include <benchmark/benchmark.h>

#include <boost/signals2.hpp>
#include <cstdint>
#include <memory>

#include "base/object/connectable.h"
#include "base/thread/task_thread.h"

namespace tarvel_bench {
namespace {

const char* SIG_Bench() { return "SIG_Bench"; }

// The smallest slot that has an effect.
struct AddTo {
  std::int64_t* sum;
  void operator()(int value) const { *sum += value; }
};

class ConnectAbleEmitter {
 public:
  void Connect(AddTo slot) { emitter_.Connect<int>(&SIG_Bench, slot); }
  void Emit(int value) { emitter_.Emit<int>(&SIG_Bench, value); }

 private:
  zo_base::ConnectAble emitter_;
};

template <class Mutex>
class Signals2Emitter {
 public:
  void Connect(AddTo slot) { signal_.connect(slot); }
  void Emit(int value) { signal_(value); }

 private:
  using Signal =
      typename boost::signals2::signal_type<void(int),
                                            boost::signals2::keywords::mutex_type<Mutex>>::type;
  Signal signal_;
};
using Signals2 = Signals2Emitter<boost::signals2::mutex>;
using Signals2WithoutLocks = Signals2Emitter<boost::signals2::dummy_mutex>;

// The cost of an emission to three slots. A second thread exists: locks and reference counts may be
// cheaper in a process with one thread, which no user of the library has.
template <class Emitter>
void BM_EmitToThreeSlots(benchmark::State& state) {
  const auto second_thread = std::make_shared<zo_base::TaskThread>("second");
  second_thread->Start();
  std::int64_t sum = 0;
  Emitter emitter;
  for (int i = 0; i < 3; ++i) emitter.Connect(AddTo{&sum});
  for (auto _ : state) {
    emitter.Emit(1);
    benchmark::DoNotOptimize(sum);
    benchmark::ClobberMemory();
  }
  if (sum != 3 * static_cast<std::int64_t>(state.iterations()))
    state.SkipWithError("a slot missed");
  second_thread->Stop();
}
BENCHMARK_TEMPLATE(BM_EmitToThreeSlots, ConnectAbleEmitter);
BENCHMARK_TEMPLATE(BM_EmitToThreeSlots, Signals2);
BENCHMARK_TEMPLATE(BM_EmitToThreeSlots, Signals2WithoutLocks);

}  // namespace
}  // namespace tarvel_bench
