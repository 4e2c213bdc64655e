#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

#include "tests/support/scoped_task_thread.h"

namespace zo_base {
namespace {

constexpr int kPosters = 8;
constexpr int kTasksOfEach = 25'000;    // A quarter of each kind.
constexpr int kBeforeTheStop = 10'000;  // Of these none may be lost.
constexpr int kAfterTheStop = 1'000;    // Of these none may run.

class TaskThreadStressTest : public ::testing::Test {
 protected:
  enum Kind { kNormal, kPriority, kDelayed, kIdle, kKinds };

  void PostRow(int poster, int first, int end) {
    for (int i = first; i < end; ++i) {
      if (i == kTasksOfEach - kAfterTheStop) static_cast<void>(stopped_.Await());
      const int kind = i % kKinds;
      const auto run = [this, poster, kind, number = i / kKinds] {
        if (ran_[poster][kind]++ != number) ++gaps_;
        if (number == kBeforeTheStop / kKinds + 500) amid_load_.Set();
      };
      if (kind == kNormal) thread_->PostTask(run);
      if (kind == kPriority) thread_->PostPriorityTask(run);
      if (kind == kDelayed) thread_->PostDelayedTask(0, run);
      if (kind == kIdle) thread_->PostIdleTask(run);
    }
  }
  std::vector<std::thread> PostRows(int first, int end) {
    std::vector<std::thread> posters;
    for (int poster = 0; poster < kPosters; ++poster) {
      posters.emplace_back([=, this] { PostRow(poster, first, end); });
    }
    return posters;
  }

  // By poster and kind. Not locked: touched on the thread, and read after its end.
  std::array<std::array<int, kKinds>, kPosters> ran_{};
  int gaps_ = 0;
  test_support::Event amid_load_, stopped_;
  test_support::ScopedTaskThread thread_;
};

TEST_F(TaskThreadStressTest, LosesNothingBeforeAStopAndRunsNothingAfterIt) {
  thread_->Start();
  for (auto& poster : PostRows(0, kBeforeTheStop)) poster.join();
  thread_->PostTask([this] {
    for (const auto& row : ran_) {
      for (const Kind kind : {kPriority, kDelayed, kNormal}) {
        EXPECT_EQ(row[kind], kBeforeTheStop / kKinds) << "of kind " << kind;
      }
    }
  });
  EXPECT_TRUE(thread_.RunAllPosted());

  auto posters = PostRows(kBeforeTheStop, kTasksOfEach);
  EXPECT_TRUE(amid_load_.Await());
  thread_->Stop();
  const auto ran_at_stop = ran_;
  stopped_.Set();
  for (auto& poster : posters) poster.join();
  EXPECT_EQ(ran_, ran_at_stop);
  EXPECT_EQ(gaps_, 0);  // What ran of a row and kind is its beginning, whole and in order.
}

}  // namespace
}  // namespace zo_base
