#include "base/thread/base_thread.h"

#include <pthread.h>
#include <sched.h>

#include <system_error>
#include <utility>

#include "base/process/forked_child.h"
#include "base/thread/library_call.h"

namespace zo_base {
namespace {

// Linux takes 15 characters and refuses a longer name whole.
constexpr std::size_t kLongestNativeName = 15;

void SetNativeThreadName(const std::string& name) {
  pthread_setname_np(pthread_self(), name.substr(0, kLongestNativeName).c_str());
}

}  // namespace

BaseThread::BaseThread(std::string name, std::function<void()> proc)
    : proc(std::move(proc)), name(std::move(name)) {}

BaseThread::~BaseThread() { StopAndJoin(); }

void BaseThread::BindProc() {
  if (!proc) proc = [this] { Run(); };
}

void BaseThread::Start() {
  const auto self = shared_from_this<BaseThread>();
  started = true;
  BindProc();
  const auto native = std::make_shared<NativeThread>();
  try {
    // The body is destroyed on the new thread, and the object with it if it holds the last
    // reference.
    NativeThread::Start(native, [self, native] {
      {
        MutexLock lock(self->thread_lock);
        self->thread = native;
      }
      self->RunThreadMain();
    });
  } catch (const std::system_error& error) {
    started = false;
    throw std::system_error(error.code(), "thread constructor failed");
  }
  // A body that has already ended is never ready.
  while (!IsReady() && !ended.load(std::memory_order_acquire)) sched_yield();
}

std::string BaseThread::StartIfPossible() {
  while (!stopping_requested() && started.exchange(true)) {
    if (GetThreadId() != pthread_t{}) return {};
    if (InForkedChild()) return "thread constructor failed";
    sched_yield();  // The caller that is starting it may fail.
  }
  if (stopping_requested()) return {};
  try {
    Start();
    return {};
  } catch (const std::system_error& error) {
    return error.what();
  }
}

void BaseThread::StartOnCurrentThread(const std::string& new_name) {
  const LibraryThreadScope scope;
  ZO_ASSERT(thread_id.load() == pthread_t{});
  BindProc();
  name = new_name;
  RunThreadMain();
}

void BaseThread::RunThreadMain() {
  ZO_ASSERT(thread_id.load() == pthread_t{});  // It is started once.
  {
    const auto created = CreateStopClosure();
    MutexLock lock(stop_closure_lock);
    stop_closure = created;
  }
  thread_id.store(pthread_self(), std::memory_order_release);
  {
    ThreadInfo info;
    FillThreadInfo(info);
    SetThreadInfo(info);
  }
  SetNativeThreadName(name);
  running.store(true, std::memory_order_release);
  {
    const LibraryCall call;
    OnThreadBegin();
  }
  proc();
  {
    const LibraryCall call;
    OnThreadEnd();
  }
  running.store(false, std::memory_order_release);
  ClearThreadInfo();
  ended.store(true, std::memory_order_release);
}

void BaseThread::StopAndJoin() {
  stopping.store(true, std::memory_order_release);
  if (!InForkedChild()) CallStopClosure();  // There it may wait for a lock of the thread's.
  if (const auto native = CurrentNativeThread()) {
    if (!native->Join()) JoinWhenFinished(native);
  }
  running.store(false, std::memory_order_release);
}

void BaseThread::CallStopClosure() {
  std::shared_ptr<std::function<void()>> wake;
  {
    MutexLock lock(stop_closure_lock);
    wake = stop_closure.lock();
  }
  if (wake && *wake) (*wake)();
}

void BaseThread::Join() {
  if (const auto native = CurrentNativeThread()) static_cast<void>(native->Join());
}

std::shared_ptr<NativeThread> BaseThread::CurrentNativeThread() {
  MutexLock lock(thread_lock);
  return thread;
}

void BaseThread::FillThreadInfo(ThreadInfo& info) {
  info.thread_id = GetThreadId();
  info.current_id = pthread_self();
  info.name = name;
  OnFillThreadInfo(info);
}

void BaseThread::OnThreadBegin() {
  Emit<>(SIG_InternalBegin);
  Emit<>(SIG_ThreadBegin);
}

void BaseThread::OnThreadEnd() {
  Emit<>(SIG_ThreadEnd);
  Emit<>(SIG_InternalEnd);
}

}  // namespace zo_base
