#pragma once

#include <memory>
#include <utility>

#include "base/object/weakly.h"
#include "base/process/forked_child.h"
#include "base/thread/task_loop.h"
#include "base/thread/thread_info.h"

namespace zo_base {

// The calling thread is in the library, for the length of a scope: in a call of the client's or in
// a task on the library's own thread. Scopes nest.
//
// The client's log function runs inside, mostly with locks held. What it must not do there is kept,
// and done on the same thread at the end of the outermost scope, when the thread holds no lock and
// uses no object of the library. So a scope comes before all locks, and first in a member function
// that logs.
//
// The header tarvel.h lists at `custom_log` what each function does there.
// Threads: each thread has its own.
class LibraryCall : ThreadScope<LibraryCall> {
 public:
  ~LibraryCall();
  using ThreadScope::depth;
};

// The calling thread is in the client's log function, for the length of a scope.
using LogFunctionCall = ThreadScope<class LogFunction>;
inline bool InLogFunction() { return LogFunctionCall::depth() > 0; }

// Keeps `task` for the end of the outermost LibraryCall of the calling thread, which must be in
// one. Kept tasks run in order. `task` refers to its objects weakly.
void RunAfterLibraryCall(Task task);

// For the start of an operation that the client's log function may call: in it, has `f(T&)` run
// after the library call and returns true. Nothing runs for an object that nobody owns any more.
// Returns true in a disabled forked child as well, where the operation does nothing.
template <class T, class F>
[[nodiscard]] bool IsPutOff(T& object, F f) {
  if (InForkedChild()) return true;
  if (!InLogFunction()) return false;
  const std::shared_ptr<T> owner(object.weak_from_this().lock(), &object);
  RunAfterLibraryCall(Weakly(owner, std::move(f)));
  return true;
}

}  // namespace zo_base
