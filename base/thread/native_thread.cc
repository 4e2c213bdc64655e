#include "base/thread/native_thread.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <utility>
#include <vector>

#include "base/process/forked_child.h"
#include "base/process/no_destructor.h"
#include "base/thread/thread_info.h"

namespace zo_base {
namespace {

// How long the end of the process waits for a callback that has ended the environment and not
// returned yet: long enough for a usual one, bearable if it never returns.
constexpr std::chrono::seconds kLongestWaitAtExit{5};
constexpr std::chrono::milliseconds kPollAtExit{1};

// Signals belong to the client, which may wait for one with signalfd: the system delivers a signal
// to any thread that doesn't block it. While this exists, the calling thread blocks all but those
// that a thread's own instructions raise. Threads that are started meanwhile inherit the mask.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
      sigdelset(&signals, own);
    }
    pthread_sigmask(SIG_SETMASK, &signals, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

thread_local const NativeThread* current_thread = nullptr;

// What the library knows of the ends of its threads.
struct Ends {
  _thread_recursive_mutex lock;  // A leaf.
  std::vector<std::shared_ptr<NativeThread>> unjoined ZO_GUARDED_BY(lock);
  // Which thread of the library waits for the end of which: callbacks on two of them may stop each
  // other's object at the same moment. No thread here waits for one of the client's.
  std::map<const NativeThread*, const NativeThread*> target_of ZO_GUARDED_BY(lock);
};

// Not destroyed: a thread may end while the process runs its exit handlers.
NoDestructor<Ends>& AllEnds() {
  static NoDestructor<Ends> ends;
  return ends;
}

bool AllJoined() {
  Ends& ends = *AllEnds();
  MutexLock lock(ends.lock);
  return ends.unjoined.empty();
}

// The calling thread's wait for another, unless that would close a circle.
class Wait {
 public:
  explicit Wait(const NativeThread& target) : allowed_(Begin(target)) {}
  ~Wait() {
    if (current_thread == nullptr || !allowed_) return;
    Ends& ends = *AllEnds();
    MutexLock lock(ends.lock);
    ends.target_of.erase(current_thread);
  }
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;

  bool allowed() const { return allowed_; }

 private:
  static bool Begin(const NativeThread& target) {
    if (current_thread == nullptr) return true;
    Ends& ends = *AllEnds();
    MutexLock lock(ends.lock);
    for (const NativeThread* next = &target; next != nullptr;) {
      if (next == current_thread) return false;
      const auto wait = ends.target_of.find(next);
      next = wait == ends.target_of.end() ? nullptr : wait->second;
    }
    ends.target_of[current_thread] = &target;
    return true;
  }

  const bool allowed_;
};

struct JoinAtExit {
  JoinAtExit() {
    CreateThreadInfoKey();  // Threads that end while this waits still need their records' key.
    AllEnds();
    // The handles of the parent's threads may name threads of the child by then.
    OnForkedChild([] { AllEnds().Renew(); });
  }
  ~JoinAtExit() {
    if (InForkedChild()) return;    // The threads are not here.
    if (OnLibraryThread()) return;  // The process exits on a thread that may be in the list itself.
    const auto deadline = std::chrono::steady_clock::now() + kLongestWaitAtExit;
    JoinFinishedThreads();
    while (!AllJoined() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(kPollAtExit);
      JoinFinishedThreads();
    }
  }
};
const JoinAtExit join_at_exit;

}  // namespace

void NativeThread::Start(const std::shared_ptr<NativeThread>& thread, std::function<void()> body) {
  if (InForkedChild()) throw std::system_error(EAGAIN, std::generic_category());
  MutexLock lock(thread->lock_);
  const SignalsBlocked blocked;
  thread->thread_ = std::thread([thread, body = std::move(body)]() mutable {
    const LibraryThreadScope scope;
    current_thread = thread.get();
    body();
    body = nullptr;
    thread->finished_.store(true, std::memory_order_release);
  });
}

bool NativeThread::Join() {
  if (InForkedChild()) {
    AbandonInForkedChild();
    return true;
  }
  const Wait wait(*this);
  if (!wait.allowed()) return false;
  MutexLock lock(lock_);
  if (thread_.joinable()) thread_.join();
  return true;
}

void NativeThread::AbandonInForkedChild() {
  if (thread_.joinable()) static_cast<void>(new std::thread(std::move(thread_)));
}

void JoinWhenFinished(const std::shared_ptr<NativeThread>& thread) {
  JoinFinishedThreads();
  Ends& ends = *AllEnds();
  MutexLock lock(ends.lock);
  auto& threads = ends.unjoined;
  if (std::find(threads.begin(), threads.end(), thread) == threads.end()) threads.push_back(thread);
}

void JoinFinishedThreads() {
  std::vector<std::shared_ptr<NativeThread>> finished;
  {
    Ends& ends = *AllEnds();
    MutexLock lock(ends.lock);
    auto& threads = ends.unjoined;
    const auto first_finished = std::partition(
        threads.begin(), threads.end(), [](const auto& thread) { return !thread->finished(); });
    finished.assign(first_finished, threads.end());
    threads.erase(first_finished, threads.end());
    if (threads.empty()) threads.shrink_to_fit();  // Nothing else gives it back at an unload.
  }
  for (const auto& thread : finished) static_cast<void>(thread->Join());
}

}  // namespace zo_base
