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
thread_local int library_calls = 0;
thread_local int log_function_calls = 0;

// Called with `library_calls` still at one, so that what runs here finds itself in a stay: what it
// keeps in its turn comes in the next round.
void RunKeptTasks() {
  while (kept_tasks != nullptr) {
    const std::unique_ptr<Tasks> tasks(std::exchange(kept_tasks, nullptr));
    for (const Task& task : *tasks) task();
  }
}

}  // namespace

LibraryCall::LibraryCall() { ++library_calls; }

LibraryCall::~LibraryCall() {
  ZO_ASSERT(library_calls > 0);
  if (library_calls == 1) RunKeptTasks();
  --library_calls;
}

LogFunctionCall::LogFunctionCall() { ++log_function_calls; }

LogFunctionCall::~LogFunctionCall() {
  ZO_ASSERT(log_function_calls > 0);
  --log_function_calls;
}

bool InLogFunction() { return log_function_calls > 0; }

void RunAfterLibraryCall(Task task) {
  ZO_ASSERT(library_calls > 0);
  if (kept_tasks == nullptr) kept_tasks = new Tasks;
  kept_tasks->push_back(std::move(task));
}

}  // namespace zo_base
