#include "business/tarvel_lbs/count_timer_invoker.h"

#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/steady_time.h"
#include "tests/lbs/captured_log.h"
#include "tests/support/event.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_tarvel {
namespace {

using test_support::RecordedLog;

constexpr std::int32_t kTimes = 3;
constexpr std::int32_t kSpan = 20;  // Milliseconds.

// Most tests hold the owning thread while they call, so that no span ends meanwhile, however slow
// the machine is.
class CountTimerInvokerTest : public ::testing::Test {
 protected:
  CountTimerInvokerTest() { thread_->Start(); }

  std::shared_ptr<CountTimerInvoker> NewInvoker(std::int32_t span = kSpan) {
    return CountTimerInvoker::Create(kTimes, span,
                                     thread_->shared_from_this<zo_base::TaskThread>());
  }
  void Request(const char* name, bool immediately = false) {
    invoker_->Invoke([this, name] { ran_ += name; }, immediately);
  }
  // Lets the thread go on until a span that begins now would have ended.
  [[nodiscard]] bool RunSpan() {
    test_support::Event ended;
    // Delayed tasks run in the order of their times, then of posting.
    thread_->PostDelayedTask(kSpan, [&] { ended.Set(); });
    thread_.Release();
    return ended.Await();
  }

  const test_support::CapturedLog log_;
  std::string ran_;  // Names of the tasks that ran.
  test_support::ScopedTaskThread thread_;
  std::shared_ptr<CountTimerInvoker> invoker_ = NewInvoker();
};

TEST_F(CountTimerInvokerTest, RunsTheTaskOfTheThirdRequestOnceAndAtOnce) {
  ASSERT_TRUE(thread_.Hold());
  Request("a");
  Request("b");
  EXPECT_EQ(ran_, "");
  Request("c");
  EXPECT_EQ(ran_, "c");
  ASSERT_TRUE(RunSpan());
  EXPECT_EQ(ran_, "c");

  ASSERT_TRUE(thread_.Hold());
  Request("d");  // Opens a new span.
  EXPECT_EQ(ran_, "c");
  ASSERT_TRUE(RunSpan());
  EXPECT_EQ(ran_, "cd");
}

TEST_F(CountTimerInvokerTest, RunsALoneRequestOnItsThreadAfterTheSpan) {
  constexpr std::int32_t kLongSpan = 100;
  invoker_ = NewInvoker(kLongSpan);
  test_support::Event finished;
  std::int64_t ran_at = 0;
  const std::int64_t requested_at = zo_base::SteadyMilliseconds();
  const auto task = [&] {
    ran_at = zo_base::SteadyMilliseconds();
    EXPECT_TRUE(thread_->IsCurrentThread());
    finished.Set();
  };
  invoker_->Invoke(task, false);
  ASSERT_TRUE(finished.Await());
  EXPECT_GE(ran_at - requested_at, kLongSpan);
}

TEST_F(CountTimerInvokerTest, RunsTheLatestTaskWhenTheSpanOfTheFirstEnds) {
  ASSERT_TRUE(thread_.Hold());
  Request("a");
  std::string ran_by_then;
  thread_->PostDelayedTask(kSpan, [&] { ran_by_then = ran_; });
  Request("b");
  ASSERT_TRUE(RunSpan());
  EXPECT_EQ(ran_by_then, "b");
  EXPECT_EQ(ran_, "b");
  EXPECT_THAT(RecordedLog::Texts(),
              testing::ElementsAre("[count timer invoker] call Invoke immediately:false",
                                   "[count timer invoker] call Invoke immediately:false",
                                   "[count timer invoker][time out] Invoke task",
                                   "[count timer invoker] call Invoke immediately:true",
                                   "[count timer invoker] Invoke immediately"));
}

TEST_F(CountTimerInvokerTest, ReplacesWhatIsPendingByAnImmediateRun) {
  ASSERT_TRUE(thread_.Hold());
  Request("a");
  Request("b");
  const auto now = [this] {
    ran_ += "now";
    Request("c");  // The first of a new span.
  };
  invoker_->Invoke(now, true);
  EXPECT_EQ(ran_, "now");
  ASSERT_TRUE(RunSpan());
  EXPECT_EQ(ran_, "nowc");
  EXPECT_TRUE(RecordedLog::Texts("[count timer invoker][times]").empty());
}

TEST_F(CountTimerInvokerTest, RunsNothingWhenItsThreadIsStoppingAndKeepsCounting) {
  ASSERT_TRUE(thread_.Hold());
  Request("a");
  Request("b");
  std::thread stopper([&] { thread_->Stop(); });
  while (!thread_->IsStopping()) std::this_thread::yield();
  Request("now", true);
  EXPECT_TRUE(RecordedLog::Texts("[count timer invoker][times]").empty());
  Request("c");
  EXPECT_EQ(RecordedLog::Texts("[count timer invoker][times]").size(),
            1u);  // It is still the third.
  thread_.Release();
  stopper.join();
  Request("later", true);
  thread_.Destroy();
  Request("orphan", true);
  EXPECT_EQ(ran_, "");
}

TEST_F(CountTimerInvokerTest, RunsNothingOnceItIsStoppedOrReleased) {
  for (const bool released : {false, true}) {
    ASSERT_TRUE(thread_.Hold());
    Request("a");
    if (released) invoker_.reset();
    if (!released) invoker_->Stop();
    if (!released) Request("now", true);
    ASSERT_TRUE(RunSpan());
    EXPECT_EQ(ran_, "");
    invoker_ = NewInvoker();
  }
}

TEST_F(CountTimerInvokerTest, MayBeReleasedByItsOwnTask) {
  test_support::Event finished;
  ASSERT_TRUE(thread_.Hold());
  invoker_->Invoke(
      [&, text = std::string("ran")] {
        invoker_.reset();
        ran_ = text;
      },
      false);
  ASSERT_TRUE(RunSpan());
  EXPECT_EQ(ran_, "ran");
}

// Each run tells up to which request it has come.
class RequestCounter {
 public:
  void Request(CountTimerInvoker& invoker, bool immediately) {
    {
      const std::lock_guard lock(mutex_);
      ++requests_;
    }
    invoker.Invoke(
        [this] {
          const std::lock_guard lock(mutex_);
          covered_ = requests_;
          changed_.notify_all();
        },
        immediately);
  }
  [[nodiscard]] bool AwaitRunAfterTheLast() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20),
                             [this] { return covered_ == requests_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int requests_ = 0;
  int covered_ = 0;
};

TEST_F(CountTimerInvokerTest, LeavesNoRequestOfManyThreadsWithoutARun) {
  RequestCounter counter;
  invoker_ = NewInvoker(1);
  for (int round = 0; round < 100; ++round) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < 10; ++i) counter.Request(*invoker_, thread == 0 && i % 2 == 0);
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(counter.AwaitRunAfterTheLast()) << round;
    counter.Request(*invoker_, false);  // Nothing is left that keeps this one from its span.
    ASSERT_TRUE(counter.AwaitRunAfterTheLast()) << round;
  }
  thread_->Stop();  // Before what its last tasks use goes.
}

}  // namespace
}  // namespace zo_tarvel
