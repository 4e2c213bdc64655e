#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/native_thread.h"
#include "base/task_thread.h"
#include "tests/support/event.h"

namespace zo_base {
namespace {

using test_support::Event;

TEST(ThreadTest, ReleasedOnItselfEndsCleanlyAndItsNativeThreadIsJoinedLater) {
  Event released, ending, leave;
  std::atomic<bool> left{false};
  pthread_t content_died_on{};
  const auto when_native_thread_ends = [&](void*) {
    ending.Set();
    EXPECT_TRUE(leave.Await());
    left = true;
  };
  auto owner = std::make_shared<TaskThread>("released");
  owner->PostTask([&, thread = owner.get()] {
    static thread_local std::shared_ptr<void> last_act;  // Goes after all that the library runs.
    last_act = std::shared_ptr<void>(nullptr, when_native_thread_ends);
    EXPECT_TRUE(released.Await());
    thread->Stop();
  });
  std::shared_ptr<void> content(nullptr, [&](void*) { content_died_on = pthread_self(); });
  owner->PostTask([content] { ADD_FAILURE(); });
  owner->Connect<>(SIG_ThreadBegin, [content] {});
  content.reset();
  owner->Start();
  const pthread_t native = owner->GetThreadId();
  owner.reset();
  released.Set();
  ASSERT_TRUE(ending.Await());
  EXPECT_TRUE(pthread_equal(content_died_on, native));
  leave.Set();
  JoinFinishedThreads();
  EXPECT_TRUE(left);
}

// As when callbacks on two threads release each the other one's service.
TEST(ThreadTest, TwoThatStopEachOtherBothEnd) {
  for (int round = 0; round < 100; ++round) {
    const auto first = std::make_shared<TaskThread>("first");
    const auto second = std::make_shared<TaskThread>("second");
    first->Start();
    second->Start();
    std::latch both_run(2), both_stopped(2);
    const auto stop = [&](TaskThread& other) {
      both_run.arrive_and_wait();
      other.Stop();
      both_stopped.count_down();
    };
    first->PostTask([&] { stop(*second); });
    second->PostTask([&] { stop(*first); });
    both_stopped.wait();
    first->Stop();
    second->Stop();
    EXPECT_FALSE(first->IsRunning() || second->IsRunning());
  }
}

}  // namespace
}  // namespace zo_base
