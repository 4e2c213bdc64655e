#include "base/timer.h"

#include <utility>

#include "base/thread_info.h"

namespace zo_base {

void Timer::Start(std::int32_t delay_ms, Task task, std::int32_t times) {
  weak_flag.CancelWeakClosures();
  const auto loop = LoopToRunOn();
  if (loop == nullptr) return;
  auto fire = weak_flag.ToWeakClosure(std::move(task));
  if (times != 0) {
    loop->PostLoopTask(delay_ms, std::move(fire), times);
  } else {
    loop->PostDelayedTask(delay_ms, std::move(fire));
  }
}

std::shared_ptr<ITaskLoop> Timer::LoopToRunOn() const {
  if (auto own = task_loop.lock()) return own;
  return GetCurrentTaskLoop();
}

}  // namespace zo_base
