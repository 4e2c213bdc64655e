#include "tools/backend/connection_threads.h"

#include <cstdint>
#include <system_error>
#include <utility>

#include "base/process/clock.h"

namespace tarvel_backend {

namespace {

// The condition needs a limit; the thread then waits again.
constexpr std::int64_t kLongestWait = 60 * zo_base::kMillisecondsPerSecond;

}  // namespace

void ConnectionThreads::enqueue(std::function<void()> serve) {
  {
    zo_base::MutexLock lock(mutex_);
    waiting_.push_back(std::move(serve));
    changed_.NotifyAll();
    if (idle_ >= waiting_.size() || threads_.size() == most_) return;
  }
  try {
    threads_.emplace_back([this] { Run(); });
  } catch (const std::system_error&) {
    // The system has no thread, so the connection waits for one of ours.
  }
}

void ConnectionThreads::shutdown() {
  {
    zo_base::MutexLock lock(mutex_);
    stopping_ = true;
    changed_.NotifyAll();
  }
  for (std::thread& thread : threads_) thread.join();
}

void ConnectionThreads::Run() {
  while (const auto serve = Take()) serve();
}

std::function<void()> ConnectionThreads::Take() {
  zo_base::MutexLock lock(mutex_);
  ++idle_;
  while (waiting_.empty() && !stopping_) {
    changed_.WaitUntil(mutex_, zo_base::SteadyMilliseconds() + kLongestWait);
  }
  --idle_;
  if (waiting_.empty()) return {};
  auto serve = std::move(waiting_.front());
  waiting_.pop_front();
  return serve;
}

}  // namespace tarvel_backend
