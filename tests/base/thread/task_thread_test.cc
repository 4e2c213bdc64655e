#include "base/thread/task_thread.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <barrier>
#include <deque>
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
#include "base/thread/timer.h"
#include "tests/support/child_process.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scoped_task_thread.h"

namespace zo_base {
namespace {

using namespace test_support;

// Longer than any test waits: who sleeps until then is only woken by others.
constexpr std::int32_t kFarMs = 60'000;

TEST(TaskThreadTest, RunsTheMostUrgentTaskFirst) {
  std::vector<std::string> ran;
  Event idle;
  ScopedTaskThread thread;
  const auto note = [&](const char* name) { return [&ran, name] { ran.emplace_back(name); }; };
  thread->PostTask([&] {  // Until it has returned, all others wait.
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
  });
  thread->Start();
  ASSERT_TRUE(idle.Await());
  EXPECT_THAT(ran, testing::ElementsAre("priority", "overdue", "delayed", "posted later",
                                        "later priority", "later delayed", "normal", "idle"));
}

TEST(TimerTest, RunsItsLatestTaskAsOftenAsTold) {
  constexpr std::array<std::int32_t, 4> kTimes{0, 1, 3, INT32_MIN};
  std::array<int, 4> runs{}, before{};
  std::string ran;
  ManualClock clock;
  ScopedTaskThread thread(clock);
  std::deque<Timer> timers;
  std::optional<Timer> restarted(thread->GetTaskLoop());
  thread->Start();  // A timer's task from before it would be lost.
  for (std::size_t i = 0; i < kTimes.size(); ++i) {
    const auto run = [&, i] { ++runs[i]; };
    timers.emplace_back(thread->GetTaskLoop()).Start(kFarMs, run, kTimes[i]);
  }
  const auto cancelled = [] { ADD_FAILURE(); };
  const auto last = [&, text = std::make_shared<std::string>("x")] {
    if (ran == "xx") restarted.reset();
    ran += *text;  // The task still owns what it captured.
  };
  restarted->Start(kFarMs, cancelled, 0);
  restarted->Start(kFarMs, cancelled, -1);
  restarted->Start(kFarMs, last, -1);
  for (const std::array<int, 4>& after :
       {std::array{1, 1, 1, 1}, {1, 1, 2, 2}, {1, 1, 3, 3}, {1, 1, 3, 4}}) {
    clock.Advance(kFarMs - 1);
    ASSERT_TRUE(thread.RunAllPosted());
    EXPECT_EQ(runs, before);
    clock.Advance(1);
    ASSERT_TRUE(thread.RunAllPosted());
    EXPECT_EQ(runs, after);
    before = after;
  }
  EXPECT_EQ(ran, "xxx");
}

const std::string kKinds[] = {"priority", "delayed", "normal", "idle", "loop"};

template <class Pointer>  // To a thread or its handle.
void Post(const std::string& kind, const Pointer& to, const Task& task) {
  if (kind == "priority") to->PostPriorityTask(task);
  if (kind == "delayed") to->PostDelayedTask(0, task);
  if (kind == "normal") to->PostTask(task);
  if (kind == "idle") to->PostIdleTask(task);
  if (kind == "loop") to->PostLoopTask(0, task, -1);
}

TEST(TaskThreadTest, DropsAllBehindAStopOfItsOwn) {
  for (std::size_t i = 0; i < 25; ++i) {
    const std::string &kind = kKinds[i / 5], &behind = kKinds[i % 5];
    SCOPED_TRACE(kind + ", then " + behind);
    const auto token = std::make_shared<int>();
    const auto fail = [token] { ADD_FAILURE(); };
    int runs = 0;
    Event entered;
    auto thread = std::make_shared<TaskThread>("worker");
    const auto handle = thread->GetTaskLoop();
    Post(kind, handle, fail);  // Nobody takes what is handed over before the start.
    Post(kind, thread, [&] {
      ++runs;  // Once also in a loop, whose repetition has already been scheduled.
      Post(behind, thread, fail);
      entered.Set();
      thread->Stop();
      thread->Join();  // Not for itself.
    });
    Post(kind, thread, fail);
    thread->Start();
    ASSERT_TRUE(entered.Await());
    const auto stop = [&] {
      thread->Stop();
      EXPECT_FALSE(thread->IsReady());  // It waits for the end.
    };
    std::jthread first(stop), second(stop);
    first.join(), second.join();
    EXPECT_EQ(runs, 1);
    Post(kind, thread, fail);
    EXPECT_EQ(token.use_count(), 5);
    thread.reset();
    Post(kind, handle, fail);
    EXPECT_EQ(token.use_count(), 2);  // Here and in `fail`.
  }
}

TEST(TaskThreadTest, LosesNoPostWhileItFallsAsleep) {
  ScopedTaskThread thread;
  thread->PostDelayedTask(kFarMs, [] { ADD_FAILURE(); });
  thread->Start();
  for (int round = 0; round < 3'000; ++round) {
    const auto ran = std::make_shared<Event>();
    Post(kKinds[round % 3], thread, [ran] { ran->Set(); });
    ASSERT_TRUE(ran->Await()) << "lost: " << kKinds[round % 3];
  }
  const std::int64_t begun = SteadyMilliseconds();
  thread->Stop();
  EXPECT_LT(SteadyMilliseconds() - begun, kFarMs / 2);
}

TEST(TaskThreadTest, EndsCleanlyWhenReleasedOnItself) {
  Event released, destroyed;
  auto owner = std::make_shared<TaskThread>("released");
  owner->PostTask([&, thread = owner.get()] {
    EXPECT_TRUE(released.Await());
    thread->Stop();
  });
  std::shared_ptr<void> content(nullptr, [&](void*) { destroyed.Set(); });
  owner->PostTask([content] { ADD_FAILURE(); });
  owner->Connect<>(SIG_ThreadBegin, [content] {});
  owner->Start();
  content.reset(), owner.reset();
  released.Set();
  EXPECT_TRUE(destroyed.Await());
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

TEST(BaseThreadTest, TellsEachCallerThatTheSystemHasNoThread) {
  EXPECT_GOOD_CHILD([] {
    std::shared_ptr<TaskThread> thread;
    std::barrier both(2);
    const auto start = [&](bool makes_it) {
      for (int round = 0; round < 1'000; ++round) {
        if (makes_it) thread = std::make_shared<TaskThread>("denied");
        both.arrive_and_wait();
        EXPECT_NE(thread->StartIfPossible(), "");
        both.arrive_and_wait();
      }
    };
    std::thread other([&] { start(false); });
    const rlimit none{1, 1};  // Counted for this user alone, who isn't root.
    if (setrlimit(RLIMIT_NPROC, &none) != 0 || setuid(54'321) != 0) _exit(kNotPermitted);
    start(true);
    other.join();
    _exit(HasFailure() ? 1 : 0);  // Not exit(): leak checkers need a thread.
    return 0;
  });
}

const char* SIG_Main() { return "SIG_Main"; }

struct Scene {
  std::string calls;
  std::unique_ptr<ConnectAble> emitter = std::make_unique<ConnectAble>();
  zo_sigslot::connection b, c;
};

TEST(ConnectAbleTest, ASlotsChangesTakeEffectFromTheNextEmission) {
  const struct {
    const char* name;
    std::function<void(Scene&)> act;  // What slot b does in the first of two emissions.
    const char* calls;
  } rows[] = {
      {"connects", [](Scene& my) { my.emitter->Connect<>(SIG_Main, [&] { my.calls += 'd'; }); },
       "abc abcd"},
      {"disconnects itself", [](Scene& my) { my.b.disconnect(); }, "abc ac"},
      {"disconnects a later slot", [](Scene& my) { my.c.disconnect(); }, "abc ab"},
      {"drops the signal", [](Scene& my) { my.emitter->Disconnect(SIG_Main); }, "abc "},
      {"emits", [](Scene& my) { my.emitter->Emit<>(SIG_Main); }, "ababcc abc"},
      {"destroys the emitter, then disconnects a later slot",
       [](Scene& my) { my.emitter.reset(), my.c.disconnect(); }, "abc "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Scene my;
    bool acted = false;
    my.emitter->Connect<>(SIG_Main, [&] { my.calls += 'a'; });
    my.b = my.emitter->Connect<>(SIG_Main, [&] {
      my.calls += 'b';
      if (!std::exchange(acted, true)) row.act(my);
    });
    my.c = my.emitter->Connect<>(SIG_Main, [&] { my.calls += 'c'; });
    my.emitter->Emit<>(SIG_Main);
    my.calls += ' ';
    if (my.emitter) my.emitter->Emit<>(SIG_Main);
    EXPECT_EQ(my.calls, row.calls);
  }
}

TEST(ConnectAbleTest, EmitsToLastingSlotsWhileOthersConnect) {
  ConnectAble emitter;
  int calls = 0;
  emitter.Connect<>(SIG_Main, [&] { ++calls; });
  std::jthread other([&] {
    for (int i = 0; i < 2'000; ++i) emitter.Connect<>(SIG_Main, [] {}).disconnect();
  });
  for (int i = 0; i < 2'000; ++i) emitter.Emit<>(SIG_Main);
  EXPECT_EQ(calls, 2'000);
}

}  // namespace
}  // namespace zo_base
