#include "base/recursive_mutex.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "tests/support/event.h"

namespace zo_base {
namespace {

bool AnotherThreadGets(_thread_recursive_mutex& mutex) {
  bool got = false;
  std::thread([&] {
    if (!mutex.try_lock()) return;
    got = true;
    mutex.unlock();
  }).join();
  return got;
}

TEST(RecursiveMutexTest, IsFreeOnceUnlockedAsOftenAsLockedAndRemembersItsLastOwner) {
  _thread_recursive_mutex mutex;
  const auto lock_again = [&] { MutexLock inner(mutex); };
  {
    MutexLock outer(mutex);
    lock_again();
    EXPECT_FALSE(AnotherThreadGets(mutex));
  }
  EXPECT_TRUE(pthread_equal(mutex.owner(), pthread_self()));
  EXPECT_TRUE(AnotherThreadGets(mutex));
  EXPECT_FALSE(pthread_equal(mutex.owner(), pthread_self()));
}

TEST(RecursiveMutexTest, CanBeDestroyedWhileAnotherThreadHoldsIt) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "ThreadSanitizer reports the very thing that is tested.";
#endif
  std::optional<_thread_recursive_mutex> mutex(std::in_place);
  test_support::Event held, destroyed;
  std::thread holder([&]() ZO_NO_THREAD_SAFETY_ANALYSIS {
    mutex->lock();
    held.Set();
    EXPECT_TRUE(destroyed.Await());
  });
  EXPECT_TRUE(held.Await());
  mutex.reset();
  destroyed.Set();
  holder.join();
}

}  // namespace
}  // namespace zo_base
