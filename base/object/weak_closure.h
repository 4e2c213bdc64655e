#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace zo_base {

// Never instantiated: only the lifetime of a shared pointer's control block is used.
class ZOWeakFlag {};

// Base of objects with asynchronous callbacks. A callback wrapped by ToWeakClosure does nothing
// once the object is destroyed or has called CancelWeakClosures.
//
// Threads: ToWeakClosure and CancelWeakClosures of one object must not run at the same time (any
// number of ToWeakClosure calls may, once the first has returned). A closure may run on any thread.
// A closure that checks the flag after its release does nothing; one that has already passed the
// check on another thread still runs. So an owner stops its task thread before it is destroyed.
class WeakClosureSupportor {
 public:
  // Callable with the arguments of `F`. Owns no part of the owner; safe to call at any time.
  template <class R, class F>
  class __WeakClosure {
   public:
    __WeakClosure(std::weak_ptr<ZOWeakFlag> flag, F closure)
        : flag(std::move(flag)), closure(std::move(closure)) {}

    // Returns a value-initialised R once it is cancelled.
    template <class... Args>
    R operator()(Args&&... args) {
      if (flag.expired()) return R();
      return static_cast<R>(closure(std::forward<Args>(args)...));
    }

   private:
    std::weak_ptr<ZOWeakFlag> flag;
    F closure;
  };

  WeakClosureSupportor() = default;
  virtual ~WeakClosureSupportor() = default;
  WeakClosureSupportor(const WeakClosureSupportor&) = delete;
  WeakClosureSupportor& operator=(const WeakClosureSupportor&) = delete;

  // `R` is the result of the closure: void unless named.
  template <class R = void, class F>
  [[nodiscard]] __WeakClosure<R, std::decay_t<F>> ToWeakClosure(F&& closure) {
    if (!flag.use_count()) flag = std::shared_ptr<ZOWeakFlag>(static_cast<ZOWeakFlag*>(nullptr));
    return {flag, std::forward<F>(closure)};
  }

  // Cancels all closures made so far. The next ToWeakClosure starts a new generation.
  void CancelWeakClosures() { flag.reset(); }
  // Whether closures were made since the last cancel.
  bool HasWeakClosures() const { return flag.use_count() != 0; }

 private:
  std::shared_ptr<ZOWeakFlag> flag;  // The living generation; empty until the first closure.
};

}  // namespace zo_base
