#pragma once

#include "base/thread/task_loop.h"
#include "base/thread/thread_info.h"

namespace zo_base {

// A stay of the calling thread in the library, for the length of a scope: a call of the client's,
// or a task on a thread of the library's own. They nest.
//
// The client's log function is called in the middle of them, mostly with locks held. What it must
// not do there is kept, and done on the same thread when the outermost stay ends: by then the
// thread holds no lock of the library and works on none of its objects. So a scope stands in front
// of all locks, and in a member function that logs in front of all else.
//
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
// one. Tasks run in the order in which they were kept. `task` holds what it works on weakly.
void RunAfterLibraryCall(Task task);

}  // namespace zo_base
