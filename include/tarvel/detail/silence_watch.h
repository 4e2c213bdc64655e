// Tells that nothing has happened for some time. Included by client.h only.
#ifndef TARVEL_DETAIL_SILENCE_WATCH_H_
#define TARVEL_DETAIL_SILENCE_WATCH_H_

#include <pthread.h>
#include <signal.h>

#include <condition_variable>
#include <mutex>

namespace tarvel {
namespace detail {

// A thread that calls a function once when an expected event doesn't come in time. Not std::thread,
// which throws when the system gives no thread.
//
// Threads: any. The function runs on the watch's thread, without a lock, and may call Stop.
// Ownership: the thread owns a share of the watch.
class SilenceWatch : public std::enable_shared_from_this<SilenceWatch> {
 public:
  SilenceWatch(std::chrono::milliseconds limit, std::function<void()> on_silence)
      : limit_(limit), on_silence_(std::move(on_silence)) {}

  // Returns false when the system gives no thread. The thread takes none of the client's signals.
  bool Start() {
    auto share = std::make_unique<std::shared_ptr<SilenceWatch>>(shared_from_this());
    sigset_t all, before;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
      sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_SETMASK, &all, &before);
    started_ = pthread_create(&thread_, nullptr, Main, share.get()) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started_) static_cast<void>(share.release());  // The thread's now.
    return started_;
  }

  // From now on the event is expected, or no more.
  void Expect() { Set(Clock::now() + limit_, true); }
  void Happened() { Set({}, false); }

  // Ends the watch. Waits for the function, but not within it, nor without `may_wait`.
  void Stop(bool may_wait = true) {
    Set({}, false);
    {
      const std::lock_guard<std::mutex> lock(lock_);
      ended_ = true;
      changed_.notify_all();
    }
    if (!started_) return;
    if (!may_wait || pthread_equal(pthread_self(), thread_) != 0) {
      pthread_detach(thread_);
    } else {
      pthread_join(thread_, nullptr);
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  static void* Main(void* argument) {
    const std::unique_ptr<std::shared_ptr<SilenceWatch>> share(
        static_cast<std::shared_ptr<SilenceWatch>*>(argument));
    (*share)->Run();
    return nullptr;
  }

  void Run() {
    std::unique_lock<std::mutex> lock(lock_);
    while (!ended_) {
      if (!expecting_) {
        changed_.wait(lock);
      } else if (Clock::now() < due_) {
        changed_.wait_until(lock, due_);
      } else {
        expecting_ = false;
        lock.unlock();
        on_silence_();
        lock.lock();
      }
    }
  }

  void Set(Clock::time_point due, bool expecting) {
    const std::lock_guard<std::mutex> lock(lock_);
    due_ = due;
    expecting_ = expecting;
    changed_.notify_all();
  }

  const std::chrono::milliseconds limit_;
  const std::function<void()> on_silence_;
  pthread_t thread_{};
  bool started_ = false;

  std::mutex lock_;
  std::condition_variable changed_;
  // Guarded by lock_.
  bool ended_ = false;
  bool expecting_ = false;
  Clock::time_point due_{};
};

}  // namespace detail
}  // namespace tarvel

#endif  // TARVEL_DETAIL_SILENCE_WATCH_H_
