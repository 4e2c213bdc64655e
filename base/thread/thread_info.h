#pragma once

#include <pthread.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "base/object/any.h"

namespace zo_base {

class ITaskLoop;

// The record of a thread of the library, for timers and log lines.
struct ThreadInfo {
  std::string name;
  std::shared_ptr<ITaskLoop> task_loop;  // Null on a thread without a loop.
  pthread_t thread_id{};
  pthread_t current_id{};
  std::map<std::int32_t, ZOAny> user_data;
};

// Creates the process-wide key of the records, once, while the image is loaded. Statics made after
// it may still use it while they are destroyed.
void CreateThreadInfoKey();

// The record of the calling thread, which owns it. Null on other threads than the library's, and
// everywhere when the process has no thread-local key left.
ThreadInfo* GetCurrentThreadInfo();

// The loop of the calling thread; null where it has none, or no record.
std::shared_ptr<ITaskLoop> GetCurrentTaskLoop();

// Tells what the calling thread is in for the length of a scope. Scopes of one kind nest.
template <class Kind>
class ThreadScope {
 public:
  ThreadScope() { ++depth_; }
  ~ThreadScope() { --depth_; }
  ThreadScope(const ThreadScope&) = delete;
  ThreadScope& operator=(const ThreadScope&) = delete;

  static int depth() { return depth_; }

 private:
  static inline thread_local int depth_ = 0;
};

// Makes the calling thread one of the library's, that is, one that runs a BaseThread.
using LibraryThreadScope = ThreadScope<class LibraryThread>;
inline bool OnLibraryThread() { return LibraryThreadScope::depth() > 0; }

// Copies `info` into the calling thread's record. Without a key nothing happens.
void SetCurrentThreadInfo(const ThreadInfo& info);

// Frees the calling thread's record.
void ClearCurrentThreadInfo();

}  // namespace zo_base
