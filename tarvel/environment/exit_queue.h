#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

// One call of ExitTarvelEnvironment.
struct ExitRequest {
  std::int32_t id = 0;
  bool ends_process = false;  // This one is the last, however many starts are outstanding.
};

// The exits that the asking thread could not carry out.
//
// A thread of the library must never wait for the start lock: the thread that holds it may be
// joining this very thread. So its exit is put here, and whoever holds the lock carries it out.
// Threads: any.
class ExitQueue {
 public:
  void Push(ExitRequest request);
  std::optional<ExitRequest> Pop();
  bool Empty();

 private:
  zo_base::_thread_recursive_mutex lock_;
  std::deque<ExitRequest> requests_ ZO_GUARDED_BY(lock_);
};

}  // namespace zo_tarvel
