#pragma once

#include <pthread.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "base/object/any.h"

namespace zo_base {

class ITaskLoop;

// What a thread of the library knows about itself, for timers and log lines.
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

// The record of the calling thread; null on a thread that is none of the library's, and on every
// thread where the process has used up its thread-local keys. Owned by the thread.
ThreadInfo* GetCurrentThreadInfo();

// The loop of the calling thread; null where it has none, or no record.
std::shared_ptr<ITaskLoop> GetCurrentTaskLoop();

// Whether the calling thread is one of the library's, that is, runs a BaseThread. Works without a
// key.
bool OnLibraryThread();

// Makes the calling thread one of the library's for the length of a scope.
class LibraryThreadScope {
 public:
  LibraryThreadScope();
  ~LibraryThreadScope();
  LibraryThreadScope(const LibraryThreadScope&) = delete;
  LibraryThreadScope& operator=(const LibraryThreadScope&) = delete;
};

// Copies `info` into the calling thread's record. Without a key nothing happens.
void SetCurrentThreadInfo(const ThreadInfo& info);

// Frees the calling thread's record.
void ClearCurrentThreadInfo();

}  // namespace zo_base
