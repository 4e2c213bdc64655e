#include "base/timer.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "tests/support/scoped_task_thread.h"

namespace zo_base {
namespace {

class TimerTest : public ::testing::Test {
 protected:
  // Runs `use` on the thread, where a timer belongs, and waits for what it calls finished.
  void OnThread(Task use) {
    thread_->Start();
    thread_->PostTask(std::move(use));
    EXPECT_TRUE(finished_.Await());
    thread_->Stop();
  }
  // Finishes once all that is due within `delay_ms` from now has run.
  void FinishAfter(std::int32_t delay_ms) {
    thread_->PostDelayedTask(delay_ms, [this] { finished_.Set(); });
  }

  std::string ran_;
  test_support::Event finished_;
  test_support::ScopedTaskThread thread_;
  std::optional<Timer> timer_{thread_->GetTaskLoop()};
};

TEST_F(TimerTest, StartedAgainRunsOnlyTheLastTaskAsOftenAsAsked) {
  const auto cancelled = [this] { ran_ += "cancelled "; };
  const auto last = [this] {
    ran_ += "last ";
    if (ran_ == "last last ") FinishAfter(2);
  };
  OnThread([&] {
    timer_->Start(1, cancelled, 0);
    timer_->Start(1, cancelled, -1);
    timer_->Start(2, last, 2);
  });
  EXPECT_EQ(ran_, "last last ");
}

TEST_F(TimerTest, DestroyedByItsOwnRepeatedTaskNeverRunsItAgain) {
  OnThread([this] {
    const auto repeated = [this, text = std::make_shared<std::string>("x")] {
      if (ran_ == "xx") {
        timer_.reset();
        FinishAfter(5);
      }
      ran_ += *text;  // The task still owns what it captured.
    };
    timer_->Start(1, repeated, -1);
  });
  EXPECT_EQ(ran_, "xxx");
}

TEST_F(TimerTest, RunsOnTheCallersLoopWhenItsOwnHasGoneAndNowhereWithoutAny) {
  Timer orphan{std::make_shared<TaskThread>("gone")->GetTaskLoop()};
  const auto token = std::make_shared<int>();
  orphan.Start(
      0, [token] { ADD_FAILURE(); }, -1);  // This thread has no loop.
  EXPECT_EQ(token.use_count(), 1);
  bool on_the_thread = false;
  OnThread([&] {
    const auto fire = [&] {
      on_the_thread = thread_->IsCurrentThread();
      finished_.Set();
    };
    orphan.Start(0, fire, 0);
  });
  EXPECT_TRUE(on_the_thread);
}

}  // namespace
}  // namespace zo_base
