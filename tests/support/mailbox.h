#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace test_support {

// Callbacks put items in on their threads; the test takes them out in order.
template <class T>
class Mailbox {
 public:
  void Put(T item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }
  // Waits for an item. Throws when none comes within 20 s.
  T Take() {
    std::unique_lock lock(mutex_);
    const bool came =
        changed_.wait_for(lock, std::chrono::seconds(20), [this] { return !items_.empty(); });
    if (!came) throw std::runtime_error("nothing came");
    T item = std::move(items_.front());
    items_.pop_front();
    return item;
  }
  // Returns the present items, without waiting.
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
