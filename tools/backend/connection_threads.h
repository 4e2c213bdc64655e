#pragma once

#include <httplib.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "base/lock/condition.h"
#include "base/lock/recursive_mutex.h"
#include "base/lock/thread_annotations.h"

namespace tarvel_backend {

// The threads of a listener's connections. A thread is started when all others are busy; further
// connections wait for one. A lab has many listeners, most of which serve few connections.
//
// Threads: `enqueue` and `shutdown` are called on the listener's. Ownership: cpp-httplib owns it,
// and calls `shutdown` before it destroys it.
class ConnectionThreads final : public httplib::TaskQueue {
 public:
  explicit ConnectionThreads(std::size_t most) : most_(most) {}

  // Takes a function that serves one connection.
  void enqueue(std::function<void()> serve) override ZO_EXCLUDES(mutex_);
  // Waits until all connections have been served.
  void shutdown() override ZO_EXCLUDES(mutex_);

 private:
  void Run() ZO_EXCLUDES(mutex_);
  // Waits for a connection. Returns an empty function at the end.
  std::function<void()> Take() ZO_EXCLUDES(mutex_);

  const std::size_t most_;

  zo_base::_thread_recursive_mutex mutex_;
  zo_base::Condition changed_;
  std::deque<std::function<void()>> waiting_ ZO_GUARDED_BY(mutex_);
  std::size_t idle_ ZO_GUARDED_BY(mutex_) = 0;  // Threads.
  bool stopping_ ZO_GUARDED_BY(mutex_) = false;

  std::vector<std::thread> threads_;  // Not locked: of the listener's thread.
};

}  // namespace tarvel_backend
