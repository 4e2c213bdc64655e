#include "business/tarvel_lbs/count_timer_invoker.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/event.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_tarvel {
namespace {

constexpr std::int32_t kSpan = 20;  // Milliseconds.

// Most tests hold the owning thread while they call, so that no span ends meanwhile, however slow
// the machine is.
class CountTimerInvokerTest : public ::testing::Test {
 protected:
  CountTimerInvokerTest() { thread_->Start(); }

  std::shared_ptr<CountTimerInvoker> NewInvoker(std::int32_t span) {
    return std::make_shared<CountTimerInvoker>(3, span,
                                               thread_->shared_from_this<zo_base::TaskThread>());
  }
  void Request(char name, bool immediately = false) {
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

  std::string ran_;  // Names of the tasks that ran.
  test_support::ScopedTaskThread thread_;
  std::shared_ptr<CountTimerInvoker> invoker_ = NewInvoker(kSpan);
};

TEST_F(CountTimerInvokerTest, RunsTheLatestTaskOfABurst) {
  const struct {
    const char* requests;  // Those in capitals are immediate.
    const char* at_once;
    const char* by_the_end_of_the_first_span;
    const char* in_all;
  } rows[] = {{"a", "", "a", "a"},      {"ab", "", "b", "b"},     {"abc", "c", "c", "c"},
              {"abcd", "c", "c", "cd"}, {"A", "A", "A", "A"},     {"abC", "C", "C", "C"},
              {"abCd", "C", "C", "Cd"}, {"abCde", "C", "C", "Ce"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.requests);
    ASSERT_TRUE(thread_.Hold());
    ran_.clear();
    std::string ran_by_then;
    for (const char* name = row.requests; *name != '\0'; ++name) {
      Request(*name, *name < 'a');
      if (name == row.requests) thread_->PostDelayedTask(kSpan, [&] { ran_by_then = ran_; });
    }
    EXPECT_EQ(ran_, row.at_once);
    ASSERT_TRUE(RunSpan());
    EXPECT_EQ(ran_by_then, row.by_the_end_of_the_first_span);
    EXPECT_EQ(ran_, row.in_all);
  }
}

TEST_F(CountTimerInvokerTest, LosesNoRequestOfManyThreads) {
  invoker_ = NewInvoker(1);
  for (int round = 0; round < 100; ++round) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < 10; ++i) invoker_->Invoke([] {}, thread == 0 && i % 2 == 0);
      });
    }
    threads.clear();
    // One that was counted but has no span would keep this one from its own.
    const auto ran = std::make_shared<test_support::Event>();
    invoker_->Invoke([ran] { ran->Set(); }, false);
    ASSERT_TRUE(ran->Await()) << round;
  }
}

}  // namespace
}  // namespace zo_tarvel
