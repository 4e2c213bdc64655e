#include "base/thread/timer.h"

#include <utility>

#include "base/thread/thread_info.h"

namespace zo_base {

void Timer::Start(std::int32_t delay_ms, Task task, std::int32_t times) {
  Stop();
  const auto loop = LoopToRunOn();
  if (loop == nullptr) return;
  Task fire = NewGeneration(std::move(task));
  if (times != 0) {
    loop->PostLoopTask(delay_ms, std::move(fire), times);
  } else {
    loop->PostDelayedTask(delay_ms, std::move(fire));
  }
}

Task Timer::NewGeneration(Task task) {
  MutexLock hold(lock);
  weak_flag.CancelWeakClosures();
  return weak_flag.ToWeakClosure(std::move(task));
}

void Timer::Stop() {
  MutexLock hold(lock);
  weak_flag.CancelWeakClosures();
}

bool Timer::IsRunning() const {
  MutexLock hold(lock);
  return weak_flag.HasWeakClosures();
}

std::shared_ptr<ITaskLoop> Timer::LoopToRunOn() const {
  if (auto own = task_loop.lock()) return own;
  return GetCurrentTaskLoop();
}

}  // namespace zo_base
