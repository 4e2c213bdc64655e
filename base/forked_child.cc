#include "base/forked_child.h"

#include <pthread.h>

#include <atomic>

namespace zo_base {
namespace {

std::atomic<bool> is_at_work{false};
std::atomic<bool> in_forked_child{false};

// Registered while the image is loaded, and taken back with it.
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] {
  if (is_at_work.load(std::memory_order_relaxed)) in_forked_child = true;
});

}  // namespace

void SetAtWork(bool at_work) { is_at_work = at_work; }

bool InForkedChild() { return in_forked_child.load(std::memory_order_relaxed); }

}  // namespace zo_base
