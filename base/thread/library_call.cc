#include "base/thread/library_call.h"

#include <memory>
#include <utility>
#include <vector>

#include "base/lock/assert.h"

namespace zo_base {
namespace {

using Tasks = std::vector<Task>;

// A plain pointer: a thread-local object with a destructor would keep the image loaded.
thread_local Tasks* kept_tasks = nullptr;  // Owned; null when there are none.

// Called within the outermost scope: a task may keep another, which runs in the next round.
void RunKeptTasks() {
  while (kept_tasks != nullptr) {
    const std::unique_ptr<Tasks> tasks(std::exchange(kept_tasks, nullptr));
    for (const Task& task : *tasks) task();
  }
}

}  // namespace

LibraryCall::~LibraryCall() {
  if (depth() == 1) RunKeptTasks();
}

void RunAfterLibraryCall(Task task) {
  ZO_ASSERT(LibraryCall::depth() > 0);
  if (kept_tasks == nullptr) kept_tasks = new Tasks;
  kept_tasks->push_back(std::move(task));
}

}  // namespace zo_base
