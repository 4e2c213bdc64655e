#include "base/lock/spin_rw_lock.h"

#include <chrono>

namespace zo_base {

// Reader and writer each announce themselves before they check for the other. Both steps are
// sequentially consistent, so at least one of the two sees the other.

void SpinRWLock::LockRead() {
  ZO_ASSERT(writer_.load() != std::this_thread::get_id());
  while (true) {
    readers_.fetch_add(1);
    if (!writer_flag_.load()) return;
    readers_.fetch_sub(1);
    while (writer_flag_.load()) Pause();
  }
}

void SpinRWLock::UnlockRead() { readers_.fetch_sub(1); }

void SpinRWLock::LockWrite() {
  const auto self = std::this_thread::get_id();
  if (writer_.load() != self) {
    bool expected = false;
    while (!writer_flag_.compare_exchange_weak(expected, true)) {
      expected = false;
      Pause();
    }
    while (readers_.load() != 0) Pause();
    writer_.store(self);
  }
  ++writer_depth_;
}

void SpinRWLock::UnlockWrite() {
  ZO_ASSERT(writer_.load() == std::this_thread::get_id());
  if (--writer_depth_ != 0) return;
  writer_.store({});
  writer_flag_.store(false);
}

void SpinRWLock::Pause() const {
  if (mode_ == kSleep) {
    std::this_thread::sleep_for(std::chrono::microseconds(sleep_us_));
  } else {
    std::this_thread::yield();
  }
}

}  // namespace zo_base
