#pragma once

#include <memory>
#include <utility>

#include "base/thread/task_thread.h"
#include "tests/support/event.h"

namespace test_support {

// A task thread that is stopped when the scope ends. The test starts it. Declare it after all that
// its tasks use.
class ScopedTaskThread {
 public:
  explicit ScopedTaskThread(zo_base::SteadyClock& clock = zo_base::SteadyClock::OfSystem())
      : thread_(std::make_shared<zo_base::TaskThread>("worker", clock)) {}
  ~ScopedTaskThread() {
    Release();
    if (thread_) thread_->Stop();
  }
  zo_base::TaskThread* get() const { return thread_.get(); }
  zo_base::TaskThread* operator->() const { return thread_.get(); }

  // Waits until all normal and priority tasks posted so far and all due delayed tasks have run.
  [[nodiscard]] bool RunAllPosted() {
    const auto done = std::make_shared<Event>();
    thread_->PostTask([done] { done->Set(); });
    return done->Await();
  }

  // Keeps the started thread in a normal task until Release, so that tasks posted meanwhile queue
  // up.
  [[nodiscard]] bool Hold() {
    const auto entered = std::make_shared<Event>();
    released_ = std::make_shared<Event>();
    thread_->PostTask([entered, released = released_] {
      entered->Set();
      static_cast<void>(released->Await());
    });
    return entered->Await();
  }
  void Release() {
    if (released_) released_->Set();
  }

  void Destroy() { thread_.reset(); }  // Stop it before.

 private:
  std::shared_ptr<Event> released_;
  std::shared_ptr<zo_base::TaskThread> thread_;
};

}  // namespace test_support
