#include "base/thread/task_thread.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/object/connectable.h"
#include "base/process/clock.h"
#include "base/thread/native_thread.h"
#include "base/thread/timer.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_base {
namespace {

using test_support::Event;
using test_support::ManualClock;
using test_support::ScopedTaskThread;
using ::testing::ElementsAre;

// Longer than any test waits: who sleeps until then is only woken by others.
constexpr std::int32_t kFarMs = 60'000;

TEST(TaskThreadTest, RunsTheMostUrgentTaskFirst) {
  std::vector<std::string> ran;
  Event idle;
  ScopedTaskThread thread;
  const auto note = [&](const char* name) { return [&ran, name] { ran.emplace_back(name); }; };
  thread->Start();
  ASSERT_TRUE(thread.Hold());
  thread->PostIdleTask([&] { ran.emplace_back("idle"), idle.Set(); });
  thread->PostTask([&] {
    thread->PostDelayedTask(0, note("later delayed"));
    thread->PostPriorityTask([&] { thread->PostPriorityTask(note("later priority")); });
  });
  thread->PostTask(note("normal"));
  thread->PostDelayedTask(0, note("delayed"));
  thread->PostDelayedTask(0, note("posted later"));
  thread->PostDelayedTask(-kFarMs, [&] {
    ran.emplace_back("overdue");
    for (int i = 0; i < 20; ++i) thread->PostDelayedTask(-kFarMs, [] {});  // Into its own group.
  });
  thread->PostPriorityTask(note("priority"));
  thread.Release();
  ASSERT_TRUE(idle.Await());
  EXPECT_THAT(ran, ElementsAre("priority", "overdue", "delayed", "posted later", "later priority",
                               "later delayed", "normal", "idle"));
}

TEST(TimerTest, RunsAsOftenAsATaskInALoop) {
  for (const std::int32_t times : {0, 1, 3, INT32_MIN}) {
    for (const bool by_timer : {false, true}) {
      std::atomic<int> runs = 0;
      ManualClock clock;
      ScopedTaskThread thread(clock);
      Timer timer(thread->GetTaskLoop());
      thread->Start();  // A timer's task from before it would be lost.
      if (by_timer)
        timer.Start(
            kFarMs, [&] { ++runs; }, times);
      if (!by_timer)
        thread->PostLoopTask(
            kFarMs, [&] { ++runs; }, times);
      for (int span = 1; span <= 5; ++span) {
        clock.Advance(kFarMs - 1);
        ASSERT_TRUE(thread.RunAllPosted());
        EXPECT_LT(runs, span);
        clock.Advance(1);
        ASSERT_TRUE(thread.RunAllPosted());
        EXPECT_EQ(runs, times < 0 ? span : std::min(span, std::max(times, 1)));
      }
    }
  }
}

TEST(TimerTest, RunsOnlyTheLatestTaskUntilItIsDestroyed) {
  std::string ran;
  ManualClock clock;
  ScopedTaskThread thread(clock);
  std::optional<Timer> timer(thread->GetTaskLoop());
  const auto cancelled = [&] { ran += "cancelled "; };
  const auto last = [&, text = std::make_shared<std::string>("x")] {
    if (ran == "xx") timer.reset();
    ran += *text;  // The task still owns what it captured.
  };
  thread->Start();
  timer->Start(kFarMs, cancelled, 0);
  timer->Start(kFarMs, cancelled, -1);
  timer->Start(2 * kFarMs, last, -1);
  for (int span = 0; span < 10; ++span) {
    clock.Advance(kFarMs);
    ASSERT_TRUE(thread.RunAllPosted());
  }
  EXPECT_EQ(ran, "xxx");
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

TEST(TaskThreadTest, DropsTheTasksBehindAStop) {
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
    {
      const std::jthread stopper(stop), second_stopper(stop);
      while (!thread->IsStopping()) std::this_thread::yield();
      thread.Release();
    }
    Post(kind, *thread.get(), fail);
    EXPECT_EQ(token.use_count(), 4);
    thread.Destroy();
    Post(kind, *handle, fail);
    EXPECT_EQ(token.use_count(), 2);  // Here and in `fail`.
  }
}

TEST(TaskThreadTest, ATaskMayStopItsOwnThread) {
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

TEST(TaskThreadTest, LosesNoPostWhileItFallsAsleep) {
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

TEST(TaskThreadTest, EndsCleanlyWhenReleasedOnItself) {
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
TEST(TaskThreadTest, TwoThatStopEachOtherBothEnd) {
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

const char* SIG_Main() { return "SIG_Main"; }

// An emitter with the slots a, b and c, in that order, that note their calls.
struct Scene {
  zo_sigslot::connection Connect(char name, std::function<void()> then = nullptr) {
    return emitter->Connect<>(SIG_Main, [this, name, then] {
      calls += name;
      if (then) then();
    });
  }
  std::string CallsOfOneEmission() {
    calls.clear();
    if (emitter) emitter->Emit<>(SIG_Main);
    return calls;
  }

  std::string calls;
  std::function<void()> next_call_of_b_does;
  std::unique_ptr<ConnectAble> emitter = std::make_unique<ConnectAble>();
  zo_sigslot::connection a = Connect('a');
  zo_sigslot::connection b = Connect('b', [this] {
    if (const auto action = std::exchange(next_call_of_b_does, nullptr)) action();
  });
  zo_sigslot::connection c = Connect('c');
};

TEST(ConnectAbleTest, ASlotsChangesTakeEffectFromTheNextEmission) {
  const struct {
    const char* what_b_does;
    std::function<void(Scene&)> action;
    const char* this_emission;
    const char* next_emission;
  } cases[] = {
      {"connect", [](Scene& my) { my.Connect('d'); }, "abc", "abcd"},
      {"disconnect itself", [](Scene& my) { my.b.disconnect(); }, "abc", "ac"},
      {"disconnect a later slot", [](Scene& my) { my.c.disconnect(); }, "abc", "ab"},
      {"drop the signal", [](Scene& my) { my.emitter->Disconnect(SIG_Main); }, "abc", ""},
      {"emit", [](Scene& my) { my.emitter->Emit<>(SIG_Main); }, "ababcc", "abc"},
      {"destroy the emitter, then disconnect a later slot",
       [](Scene& my) { my.emitter.reset(), my.c.disconnect(); }, "abc", ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what_b_does);
    Scene scene;
    scene.next_call_of_b_does = [&] { row.action(scene); };
    EXPECT_EQ(scene.CallsOfOneEmission(), row.this_emission);
    EXPECT_EQ(scene.CallsOfOneEmission(), row.next_emission);
  }
}

TEST(ConnectAbleTest, EmitsToLastingSlotsWhileOthersConnect) {
  Scene scene;
  std::thread other([&] {
    for (int i = 0; i < 2'000; ++i) scene.emitter->Connect<>(SIG_Main, [] {}).disconnect();
  });
  for (int i = 0; i < 2'000; ++i) scene.emitter->Emit<>(SIG_Main);
  other.join();
  EXPECT_EQ(scene.calls.size(), 3 * 2'000u);
}

}  // namespace
}  // namespace zo_base
