#pragma once

#include <memory>

#include "base/thread/task_thread.h"
#include "tests/support/event.h"

namespace test_support {

// A task thread that is stopped when the scope ends. The test starts it. Declare it after all that
// its tasks use.
class ScopedTaskThread {
 public:
  explicit ScopedTaskThread(zo_base::SteadyClock& clock = zo_base::SteadyClock::OfSystem())
      : thread_(std::make_shared<zo_base::TaskThread>("worker", clock)) {}
  ~ScopedTaskThread() { thread_->Stop(); }
  zo_base::TaskThread* operator->() const { return thread_.get(); }

  // Waits until all normal and priority tasks posted so far and all due delayed tasks have run.
  [[nodiscard]] bool RunAllPosted() {
    const auto done = std::make_shared<Event>();
    thread_->PostTask([done] { done->Set(); });
    return done->Await();
  }

 private:
  const std::shared_ptr<zo_base::TaskThread> thread_;
};

}  // namespace test_support
