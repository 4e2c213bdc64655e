#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/lock/recursive_mutex.h"
#include "base/object/object.h"
#include "base/thread/native_thread.h"
#include "base/thread/thread_info.h"

namespace zo_base {

// Signals of a thread, without arguments, emitted on the thread itself. "Internal" ones enclose the
// others: they are for the thread's own set-up.
inline const char* SIG_InternalBegin() { return "SIG_InternalBegin"; }
inline const char* SIG_ThreadBegin() { return "SIG_ThreadBegin"; }
inline const char* SIG_ThreadEnd() { return "SIG_ThreadEnd"; }
inline const char* SIG_InternalEnd() { return "SIG_InternalEnd"; }

// A named thread. See BaseThread for what each operation does.
class IThread {
 public:
  virtual ~IThread() = default;
  virtual std::string GetName() = 0;
  virtual pthread_t GetThreadId() = 0;
  virtual std::uint64_t GetNumericThreadId() = 0;
  virtual bool IsRunning() = 0;
  virtual bool IsStopping() = 0;
  virtual void Start() = 0;
  virtual void Stop() = 0;
  virtual void Join() = 0;
  virtual void StartOnCurrentThread(const std::string& name) = 0;
  virtual bool IsCurrentThread() = 0;
  virtual void SetThreadInfo(const ThreadInfo& info) = 0;
  virtual void FillThreadInfo(ThreadInfo& info) = 0;
  virtual void ClearThreadInfo() = 0;
};

// A named operating-system thread. The body is a function given at construction, or `Run`.
//
// Ownership: must be owned by a shared_ptr. The native thread holds a strong reference while it
// runs, so the object isn't destroyed under its own body, even if a callback on this thread
// releases it. An owner therefore calls Stop before it releases the object. Threads: operations may
// be called from any thread. Start and StartOnCurrentThread are called once at most; a stopped
// thread is never started again.
class BaseThread : public IThread, public virtual ZOObjectIMPL {
 public:
  explicit BaseThread(std::string name, std::function<void()> proc = nullptr);
  ~BaseThread() override;

  std::string GetName() override { return name; }  // Whole; the system shows 15 characters.
  // Zero until the thread has begun.
  pthread_t GetThreadId() override { return thread_id.load(std::memory_order_acquire); }
  std::uint64_t GetNumericThreadId() override { return std::uint64_t{GetThreadId()}; }
  bool IsRunning() override { return running.load(std::memory_order_acquire); }
  // Stop was called and the thread hasn't ended.
  bool IsStopping() override { return stopping_requested() && IsRunning(); }

  // Returns when the thread is ready (or has already ended). Raises std::bad_weak_ptr when no
  // shared_ptr owns this object, and std::system_error "thread constructor failed" when the system
  // gives no thread.
  void Start() override;
  // Starts the thread, once; does nothing after a Start or Stop. Returns an empty string, or why
  // the system gives no thread: a later call may succeed. Any threads may call it, but not together
  // with Start.
  [[nodiscard]] std::string StartIfPossible();

  // Asks the body to end and waits for it. Doesn't wait on the thread itself, nor on a thread for
  // which that waits; a later Stop from another thread does.
  void Stop() override { StopAndJoin(); }
  void Join() override;

  // Runs the body on the calling thread under another name, and returns when it has ended.
  void StartOnCurrentThread(const std::string& name) override;

  bool IsCurrentThread() override { return pthread_equal(pthread_self(), GetThreadId()) != 0; }
  void SetThreadInfo(const ThreadInfo& info) override { SetCurrentThreadInfo(info); }
  void FillThreadInfo(ThreadInfo& info) override;
  void ClearThreadInfo() override { ClearCurrentThreadInfo(); }

  // For those who build on this class. All run on the thread itself, but for IsReady.
  virtual bool IsReady() { return IsRunning(); }  // Whether Start may return.
  virtual void OnThreadBegin();
  virtual void OnThreadEnd();
  virtual void OnFillThreadInfo(ThreadInfo&) {}
  virtual void Run() {}
  // The function that gets the body out of its wait, called by Stop. The object keeps it alive.
  virtual std::shared_ptr<std::function<void()>> CreateStopClosure() { return nullptr; }

 protected:
  // What Stop does, for destructors: calls nothing virtual.
  void StopAndJoin();

  // For what only the thread itself may touch.
  void AssertOnThread() const {
    ZO_ASSERT(pthread_equal(pthread_self(), thread_id.load(std::memory_order_relaxed)));
  }

  // For loops: Stop has been called.
  bool stopping_requested() const { return stopping.load(std::memory_order_acquire); }

 private:
  void BindProc();
  void RunThreadMain();
  std::shared_ptr<NativeThread> CurrentNativeThread() ZO_EXCLUDES(thread_lock);
  void CallStopClosure() ZO_EXCLUDES(stop_closure_lock);

  std::function<void()> proc;
  std::atomic<bool> started{false};  // Or just being started.
  // Never cleared. A Stop that finds no closure yet relies on `stop_closure_lock`: the thread takes
  // it later, and so sees this flag.
  std::atomic<bool> stopping{false};
  std::atomic<bool> running{false};
  std::atomic<bool> ended{false};  // The thread main has returned.
  std::string name;                // Written only before the thread begins.
  std::atomic<pthread_t> thread_id{};

  _thread_recursive_mutex stop_closure_lock;
  std::weak_ptr<std::function<void()>> stop_closure ZO_GUARDED_BY(stop_closure_lock);

  _thread_recursive_mutex thread_lock;
  std::shared_ptr<NativeThread> thread ZO_GUARDED_BY(thread_lock);  // Null before Start.
};

}  // namespace zo_base
