#include "business/tarvel_lbs/count_timer_invoker.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/event.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_tarvel {
namespace {

constexpr std::int32_t kSpan = 20;  // Milliseconds.

class CountTimerInvokerTest : public ::testing::Test {
 protected:
  CountTimerInvokerTest() { thread_->Start(); }

  void Request(char name, bool immediately = false) {
    invoker_->Invoke([this, name] { ran_ += name; }, immediately);
  }
  // Lets `milliseconds` pass, and waits for what becomes due.
  [[nodiscard]] bool Pass(std::int32_t milliseconds) {
    clock_.Advance(milliseconds);
    return thread_.RunAllPosted();
  }

  std::string ran_;  // Names of the tasks that ran.
  test_support::ManualClock clock_;
  test_support::ScopedTaskThread thread_{clock_};
  const std::shared_ptr<CountTimerInvoker> invoker_ = std::make_shared<CountTimerInvoker>(
      3, kSpan, thread_->shared_from_this<zo_base::TaskThread>());
};

TEST_F(CountTimerInvokerTest, RunsTheLatestTaskOfABurst) {
  const struct {
    const char* requests;  // Capitals are immediate.
    const char* at_once;
    const char* by_the_end_of_the_first_span;
    const char* in_all;
  } rows[] = {{"a", "", "a", "a"},      {"ab", "", "b", "b"},     {"abc", "c", "c", "c"},
              {"abcd", "c", "c", "cd"}, {"A", "A", "A", "A"},     {"abC", "C", "C", "C"},
              {"abCd", "C", "C", "Cd"}, {"abCde", "C", "C", "Ce"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.requests);
    ran_.clear();
    for (const char* name = row.requests; *name != '\0'; ++name) {
      Request(*name, *name < 'a');
      ASSERT_TRUE(Pass(1));  // So the first span ends first.
    }
    EXPECT_EQ(ran_, row.at_once);
    ASSERT_TRUE(Pass(kSpan - static_cast<std::int32_t>(std::strlen(row.requests))));
    EXPECT_EQ(ran_, row.by_the_end_of_the_first_span);
    ASSERT_TRUE(Pass(kSpan));
    EXPECT_EQ(ran_, row.in_all);
  }
}

TEST_F(CountTimerInvokerTest, LosesNoRequestOfManyThreads) {
  for (int round = 0; round < 300; ++round) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < 3; ++i) {
          invoker_->Invoke([] {}, thread == 0 && i % 2 == 0);
          clock_.Advance(kSpan);
        }
      });
    }
    threads.clear();
    // A counted request without a span would keep this one from starting a span.
    const auto ran = std::make_shared<test_support::Event>();
    invoker_->Invoke([ran] { ran->Set(); }, false);
    clock_.Advance(kSpan);
    ASSERT_TRUE(ran->Await()) << round;
  }
}

}  // namespace
}  // namespace zo_tarvel
