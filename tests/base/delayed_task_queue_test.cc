#include "base/delayed_task_queue.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>
#include <vector>

namespace zo_base {
namespace {

using ::testing::ElementsAre;

class DelayedTaskQueueTest : public ::testing::Test {
 protected:
  void Add(std::int32_t delay_ms, const char* name, Task then = nullptr) {
    queue_.Add(now_, delay_ms, /*times=*/0, [this, name, then] {
      ran_.push_back(name);
      if (then) then();
    });
  }
  std::vector<std::string> RunDue() {
    ran_.clear();
    const auto run = [](DelayedTask& entry) { return entry.task(), true; };
    EXPECT_TRUE(queue_.RunDue([this] { return now_; }, run));
    return ran_;
  }

  std::int64_t now_ = 1'000;
  std::vector<std::string> ran_;
  DelayedTaskQueue queue_;
};

TEST_F(DelayedTaskQueueTest, RunsWhatIsDueByTimeThenByOrderOfPosting) {
  EXPECT_EQ(queue_.earliest_run_at(), DelayedTaskQueue::kNever);
  Add(std::numeric_limits<std::int32_t>::max(), "far");
  Add(30, "1030");
  Add(10, "1010");
  now_ = 1'009;
  EXPECT_THAT(RunDue(), ElementsAre());
  now_ = 1'010;
  Add(20, "1030, posted later");
  Add(19, "1029");
  Add(-500, "510");
  now_ = 1'030;
  EXPECT_THAT(RunDue(), ElementsAre("510", "1010", "1029", "1030", "1030, posted later"));
  EXPECT_EQ(queue_.earliest_run_at(), 1'000 + std::int64_t{2'147'483'647});
}

TEST_F(DelayedTaskQueueTest, RunsInTheSameWalkWhatATaskAddsToItsOwnGroupOrMakesDue) {
  Add(0, "first", [this] {
    for (int i = 0; i < 20; ++i) Add(0, "same group");  // Enough to move the list.
    Add(-1, "past");
    Add(3, "becomes due");
    now_ += 3;
  });
  const std::vector<std::string> ran = RunDue();
  EXPECT_EQ(ran.size(), 22u);
  EXPECT_EQ(ran.back(), "becomes due");
  EXPECT_THAT(RunDue(), ElementsAre("past"));
}

}  // namespace
}  // namespace zo_base
