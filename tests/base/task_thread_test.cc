#include "base/task_thread.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/steady_time.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_base {
namespace {

using test_support::Event;
using test_support::ScopedTaskThread;
using ::testing::ElementsAre;

// Longer than any test waits: who sleeps until then is only woken by others.
constexpr std::int32_t kFarMs = 60'000;

class TaskThreadTest : public ::testing::Test {
 protected:
  Task Note(const char* name) {
    return [this, name] { notes_.emplace_back(name); };
  }
  Task NoteAndFinish(const char* name) {
    return [this, name] { notes_.emplace_back(name), finished_.Set(); };
  }

  std::vector<std::string> notes_;  // Written on the thread, read once it has finished.
  Event finished_;
  ScopedTaskThread thread_;
};

TEST_F(TaskThreadTest, RunsPriorityAndDueDelayedTasksBetweenNormalOnesAndIdleOnesLast) {
  thread_->Start();
  ASSERT_TRUE(thread_.Hold());
  thread_->PostIdleTask(NoteAndFinish("idle"));
  thread_->PostTask([this] {
    thread_->PostDelayedTask(0, Note("later delayed"));
    thread_->PostPriorityTask([this] { thread_->PostPriorityTask(Note("later priority")); });
  });
  thread_->PostTask(Note("normal"));
  thread_->PostDelayedTask(0, Note("delayed"));
  thread_->PostDelayedTask(-kFarMs, Note("overdue"));
  thread_->PostPriorityTask(Note("priority"));
  thread_.Release();
  ASSERT_TRUE(finished_.Await());
  EXPECT_THAT(notes_, ElementsAre("priority", "overdue", "delayed", "later priority",
                                  "later delayed", "normal", "idle"));
}

TEST(TaskThreadRepetitionTest, RunsAsOftenAsAsked) {
  const struct {
    std::int32_t times;
    int run_that_asks;  // It posts a task, with the same delay, that looks at the count of runs.
    int runs_seen;
  } cases[] = {{0, 1, 1}, {1, 1, 1}, {3, 3, 3}, {std::numeric_limits<std::int32_t>::min(), 5, 6}};
  for (const auto& row : cases) {
    int runs = 0, runs_seen = 0;
    Event seen;
    ScopedTaskThread thread;
    const auto look = [&] { runs_seen = runs, seen.Set(); };
    const auto repeated = [&] {
      if (++runs == row.run_that_asks) thread->PostDelayedTask(1, look);
    };
    thread->PostLoopTask(1, repeated, row.times);
    thread->Start();
    EXPECT_TRUE(seen.Await());
    thread->Stop();
    EXPECT_EQ(runs_seen, row.runs_seen) << "with times " << row.times;
  }
}

TEST_F(TaskThreadTest, RunsIdleTasksOneByOneUnlessADelayedTaskIsDueWithinHalfASecond) {
  const std::int64_t posted_at = SteadyMilliseconds();
  thread_->PostDelayedTask(400, Note("delayed"));
  thread_->PostDelayedTask(kFarMs, Note("far"));  // Too far away to hold idle tasks up.
  thread_->PostIdleTask([this] { thread_->PostTask(Note("normal")); });
  thread_->PostIdleTask(NoteAndFinish("second idle"));
  thread_->Start();
  ASSERT_TRUE(finished_.Await());
  EXPECT_GE(SteadyMilliseconds(), posted_at + 400);
  EXPECT_THAT(notes_, ElementsAre("delayed", "normal", "second idle"));
}

// Waits until the system reports the thread asleep.
void AwaitAsleep(pid_t thread) {
  std::string id, name, state;
  while (state != "S") {
    std::this_thread::yield();
    std::ifstream("/proc/self/task/" + std::to_string(thread) + "/stat") >> id >> name >> state;
  }
}

TEST_F(TaskThreadTest, WakesByItselfForAnIdleTask) {
  pid_t id = 0;
  thread_->PostTask([&id] { id = gettid(); });
  thread_->Start();
  ASSERT_TRUE(thread_.RunAllPosted());
  AwaitAsleep(id);
  thread_->PostIdleTask(NoteAndFinish("idle"));
  EXPECT_TRUE(finished_.Await());
}

TEST_F(TaskThreadTest, ItsHandleDropsWhatIsPostedBeforeTheStartAndAfterItHasGone) {
  const auto loop = thread_->GetTaskLoop();
  const auto token = std::make_shared<int>();
  const auto drops_all = [&] {
    const auto fail = [token] { ADD_FAILURE(); };
    loop->PostTask(fail);
    loop->PostPriorityTask(fail);
    loop->PostDelayedTask(0, fail);
    loop->PostLoopTask(0, fail, -1);
    loop->PostIdleTask(fail);
    return token.use_count() == 2;  // Here and in `fail`.
  };
  EXPECT_TRUE(drops_all());
  thread_->Start();
  EXPECT_TRUE(thread_.RunAllPosted());
  thread_->Stop();
  thread_.Destroy();
  EXPECT_TRUE(drops_all());
}

struct Kind {
  const char* name;
  void (*post)(TaskThread* thread, Task task);
};
const Kind kKinds[] = {
    {"priority", [](TaskThread* thread, Task task) { thread->PostPriorityTask(task); }},
    {"delayed", [](TaskThread* thread, Task task) { thread->PostDelayedTask(0, task); }},
    {"normal", [](TaskThread* thread, Task task) { thread->PostTask(task); }},
    {"loop", [](TaskThread* thread, Task task) { thread->PostLoopTask(0, task, -1); }},
    {"idle", [](TaskThread* thread, Task task) { thread->PostIdleTask(task); }}};

TEST(TaskThreadStopTest, NoTaskRunsBehindAStopAndAllGoWithTheThread) {
  for (const auto& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    const auto token = std::make_shared<int>();
    const auto fail = [token] { ADD_FAILURE(); };
    ScopedTaskThread thread;
    thread->Start();
    ASSERT_TRUE(thread.Hold());
    kind.post(thread.get(), fail);
    const auto stop = [&] {
      thread->Stop();
      EXPECT_FALSE(thread->IsReady());  // It waits for the end.
    };
    std::thread stopper(stop), second_stopper(stop);
    while (!thread->IsStopping()) std::this_thread::yield();
    thread.Release();
    stopper.join();
    second_stopper.join();
    kind.post(thread.get(), fail);
    EXPECT_EQ(token.use_count(), 4);
    thread.Destroy();
    EXPECT_EQ(token.use_count(), 2);
  }
}

TEST(TaskThreadStopTest, ATaskPostedBeforeTheStartRunsAndMayStopItsThreadAsTheLastToRun) {
  for (const auto& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    int runs = 0;
    ScopedTaskThread thread;
    kind.post(thread.get(), [&] {
      EXPECT_TRUE(thread->IsReady());
      ++runs;  // Once also in a loop, whose repetition has already been scheduled.
      for (const auto& next : kKinds) next.post(thread.get(), [] { ADD_FAILURE(); });
      thread->Stop();
      thread->Join();  // Not for itself.
    });
    thread->Start();
    thread->Join();
    EXPECT_EQ(runs, 1);
  }
}

TEST(TaskThreadWakeUpTest, NoPostAndNoStopIsLostOnAThreadThatGoesToSleepMeanwhile) {
  ScopedTaskThread thread;
  thread->PostDelayedTask(kFarMs, [] { ADD_FAILURE(); });
  thread->Start();
  for (int round = 0; round < 3'000; ++round) {
    const auto ran = std::make_shared<Event>();
    kKinds[round % 3].post(thread.get(), [ran] { ran->Set(); });
    ASSERT_TRUE(ran->Await()) << "lost: " << kKinds[round % 3].name;
  }
  const std::int64_t begun = SteadyMilliseconds();
  thread->Stop();
  EXPECT_LT(SteadyMilliseconds() - begun, kFarMs / 2);
}

}  // namespace
}  // namespace zo_base
