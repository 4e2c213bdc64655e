#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace test_support {

// What callbacks put in on their threads, and the test takes out in order.
template <class T>
class Mailbox {
 public:
  void Put(T item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }
  // Throws when there has been nothing for so long that there will be nothing.
  T Take() {
    std::unique_lock lock(mutex_);
    const bool came =
        changed_.wait_for(lock, std::chrono::seconds(20), [this] { return !items_.empty(); });
    if (!came) throw std::runtime_error("nothing came");
    T item = std::move(items_.front());
    items_.pop_front();
    return item;
  }
  // What is there now.
  std::deque<T> TakeAll() {
    const std::lock_guard lock(mutex_);
    return std::exchange(items_, {});
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<T> items_;
};

}  // namespace test_support
