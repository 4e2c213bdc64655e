#include "base/process/forked_child.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>

namespace zo_base {
namespace {

// Read relaxed: a child begins with one thread and all that the forking thread has seen, and no
// other data depends on a flag. A thread that sees the flag of ActAsForkedChild late acts as before
// for that moment.
std::atomic<bool> is_at_work{false};
std::atomic<bool> in_forked_child{false};

// Constant-initialised: statics of other files fill it while the image is loaded.
constinit std::array<std::atomic<void (*)()>, 8> renewals{};
constinit std::atomic<std::size_t> last_renewal{0};

std::atomic<pid_t> process_id{getpid()};

void OnChild() {
  process_id.store(getpid(), std::memory_order_relaxed);
  if (is_at_work.load(std::memory_order_relaxed)) in_forked_child = true;
  if (InForkedChild()) return;
  for (const auto& renewal : renewals) {
    if (const auto renew = renewal.load()) renew();
  }
}

// Registered while the image is loaded, and taken back with it.
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, OnChild);

}  // namespace

void SetAtWork(bool at_work) { is_at_work = at_work; }

bool InForkedChild() { return in_forked_child.load(std::memory_order_relaxed); }

pid_t ProcessId() { return process_id.load(std::memory_order_relaxed); }

void ActAsForkedChild() { in_forked_child = true; }

void OnForkedChild(void (*renew)()) { renewals.at(last_renewal++) = renew; }

}  // namespace zo_base
