#include "base/task_thread.h"

#include <gmock/gmock.h>

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
  thread_->PostDelayedTask(0, Note("posted later"));
  thread_->PostDelayedTask(-kFarMs, [this] {
    notes_.emplace_back("overdue");
    for (int i = 0; i < 20; ++i) thread_->PostDelayedTask(-kFarMs, [] {});  // Into its own group.
  });
  thread_->PostPriorityTask(Note("priority"));
  thread_.Release();
  ASSERT_TRUE(finished_.Await());
  EXPECT_THAT(notes_, ElementsAre("priority", "overdue", "delayed", "posted later",
                                  "later priority", "later delayed", "normal", "idle"));
}

const std::string kKinds[] = {"priority", "delayed", "normal", "idle", "loop"};

template <class Target>  // A thread, or its handle.
void Post(const std::string& kind, Target& to, const Task& task) {
  if (kind == "priority") to.PostPriorityTask(task);
  if (kind == "delayed") to.PostDelayedTask(0, task);
  if (kind == "normal") to.PostTask(task);
  if (kind == "idle") to.PostIdleTask(task);
  if (kind == "loop") to.PostLoopTask(0, task, -1);
}

TEST(TaskThreadStopTest, NoTaskRunsBehindAStopAndAllGoWithTheThread) {
  for (const auto& kind : kKinds) {
    SCOPED_TRACE(kind);
    const auto token = std::make_shared<int>();
    const auto fail = [token] { ADD_FAILURE(); };
    ScopedTaskThread thread;
    const auto handle = thread->GetTaskLoop();
    Post(kind, *handle, fail);  // Nobody takes what is handed over before the start.
    EXPECT_EQ(token.use_count(), 2);
    thread->Start();
    ASSERT_TRUE(thread.Hold());
    Post(kind, *thread.get(), fail);
    const auto stop = [&] {
      thread->Stop();
      EXPECT_FALSE(thread->IsReady());  // It waits for the end.
    };
    std::thread stopper(stop), second_stopper(stop);
    while (!thread->IsStopping()) std::this_thread::yield();
    thread.Release();
    stopper.join();
    second_stopper.join();
    Post(kind, *thread.get(), fail);
    EXPECT_EQ(token.use_count(), 4);
    thread.Destroy();
    Post(kind, *handle, fail);
    EXPECT_EQ(token.use_count(), 2);  // Here and in `fail`.
  }
}

TEST(TaskThreadStopTest, ATaskPostedBeforeTheStartRunsAndMayStopItsThreadAsTheLastToRun) {
  for (const auto& kind : kKinds) {
    SCOPED_TRACE(kind);
    int runs = 0;
    ScopedTaskThread thread;
    Post(kind, *thread.get(), [&] {
      EXPECT_TRUE(thread->IsReady());
      ++runs;  // Once also in a loop, whose repetition has already been scheduled.
      for (const auto& next : kKinds) Post(next, *thread.get(), [] { ADD_FAILURE(); });
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
    Post(kKinds[round % 3], *thread.get(), [ran] { ran->Set(); });
    ASSERT_TRUE(ran->Await()) << "lost: " << kKinds[round % 3];
  }
  const std::int64_t begun = SteadyMilliseconds();
  thread->Stop();
  EXPECT_LT(SteadyMilliseconds() - begun, kFarMs / 2);
}

}  // namespace
}  // namespace zo_base
