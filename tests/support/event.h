#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace test_support {

// A test awaits it instead of sleeping; another thread sets it.
class Event {
 public:
  void Set() {
    const std::lock_guard lock(mutex_);
    happened_ = true;
    changed_.notify_all();  // Under the lock: a waiter may destroy this as soon as it is woken.
  }

  // False when it is not set within 20 s.
  [[nodiscard]] bool Await() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [this] { return happened_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool happened_ = false;
};

}  // namespace test_support
