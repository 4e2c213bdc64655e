#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace zo_base {

using Task = std::function<void()>;

// The post operations of a task thread. Callable from any thread. Tasks must not be empty: an empty
// one raises std::bad_function_call on the task thread. See TaskThread for the order of execution.
class ITaskDelegate {
 public:
  virtual ~ITaskDelegate() = default;
  virtual void PostTask(Task task) = 0;
  virtual void PostPriorityTask(Task task) = 0;
  virtual void PostDelayedTask(std::int32_t delay_ms, Task task) = 0;
  // `times` 0 and 1 give one run, n gives n, a negative value repeats until the thread stops.
  virtual void PostLoopTask(std::int32_t delay_ms, Task task, std::int32_t times) = 0;
  virtual void PostIdleTask(Task task) = 0;
};

// The same operations, as seen by those who post through a handle.
class ITaskPostor {
 public:
  virtual ~ITaskPostor() = default;
  virtual void PostTask(Task task) = 0;
  virtual void PostPriorityTask(Task task) = 0;
  virtual void PostDelayedTask(std::int32_t delay_ms, Task task) = 0;
  virtual void PostLoopTask(std::int32_t delay_ms, Task task, std::int32_t times) = 0;
  virtual void PostIdleTask(Task task) = 0;
};

// The handle through which others post to a task thread. It doesn't own the thread: before the
// thread's begin and after its destruction, a posted task is dropped.
class ITaskLoop : public ITaskPostor {
 public:
  // Once, before anything is posted through the delegate.
  virtual void AttachDelegate(std::shared_ptr<ITaskDelegate> delegate) = 0;
};

}  // namespace zo_base
