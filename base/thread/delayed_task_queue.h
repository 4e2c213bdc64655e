#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "base/thread/task_loop.h"

namespace zo_base {

// One entry of a DelayedTaskGroup.
struct DelayedTask {
  std::int32_t delay_ms = 0;  // As given at posting; each repetition waits as long again.
  std::int64_t times = 0;     // Runs that remain, this one included.
  Task task;
};

// The tasks due at one millisecond, in order of posting.
struct DelayedTaskGroup {
  std::int64_t run_at = 0;  // Steady milliseconds; the key of the group.
  std::vector<DelayedTask> tasks;
};

// The delayed tasks of a thread, by the time at which they run. One node per distinct millisecond,
// not one per task.
//
// Not locked: TaskThread guards it. `now_ms` is on the scale of SteadyMilliseconds.
class DelayedTaskQueue {
 public:
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
  // The value of `times` that repeats until the thread stops; every negative value becomes it.
  static constexpr std::int64_t kEndless = std::numeric_limits<std::int64_t>::max();

  void Add(std::int64_t now_ms, std::int32_t delay_ms, std::int64_t times, Task task) {
    if (times < 0) times = kEndless;
    GroupAt(now_ms + delay_ms).tasks.push_back({delay_ms, times, std::move(task)});
  }

  bool empty() const { return groups_.empty(); }
  // When the first group is due; kNever without one.
  std::int64_t earliest_run_at() const { return groups_.empty() ? kNever : groups_.begin()->first; }

  // Calls `run(entry)` for each task of each group that `clock()` says is due, and drops the groups
  // walked to their end. `run` returns false to leave the walk; the group then stays. It may add
  // tasks: one for this very group runs in this walk. Returns false when the walk was left.
  template <class Clock, class Run>
  bool RunDue(Clock&& clock, Run&& run) {
    for (auto group = groups_.begin(); group != groups_.end() && group->first <= clock();) {
      // By index: the list grows when a task posts into this group.
      for (std::size_t i = 0; i < group->second.tasks.size(); ++i) {
        if (!run(group->second.tasks[i])) return false;
      }
      Forget(group->second);
      group = groups_.erase(group);
    }
    return true;
  }

 private:
  DelayedTaskGroup& GroupAt(std::int64_t run_at) {
    DelayedTaskGroup*& last_used = LastUsedBeside(run_at);
    if (last_used == nullptr || last_used->run_at != run_at) {
      last_used = &groups_.try_emplace(run_at).first->second;
      last_used->run_at = run_at;
    }
    return *last_used;
  }
  DelayedTaskGroup*& LastUsedBeside(std::int64_t run_at) {
    return last_used_[static_cast<std::uint64_t>(run_at) % last_used_.size()];
  }
  void Forget(const DelayedTaskGroup& group) {
    DelayedTaskGroup*& last_used = LastUsedBeside(group.run_at);
    if (last_used == &group) last_used = nullptr;
  }

  std::map<std::int64_t, DelayedTaskGroup> groups_;
  // Caches the search of `groups_`, since many tasks are posted for few milliseconds. Indexed by
  // the millisecond modulo the size; null when unknown.
  std::array<DelayedTaskGroup*, 128> last_used_{};
};

}  // namespace zo_base
