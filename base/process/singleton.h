#pragma once

#include <memory>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/process/at_exit_manager.h"
#include "base/process/no_destructor.h"

namespace zo_base {

template <class T, class Tag, bool kWithAtExitManager>
class Singleton;

// One `T` while the at-exit manager of `Tag` has a holder; the next manager gets a new one.
//
// Threads: any.
template <class T, class Tag>
class Singleton<T, Tag, true> {
 public:
  // Returns null without a manager. Valid while the manager has a holder.
  static T* GetInstance_WithAtExitManager() { return GetHeldInstance().get(); }

  // The same, but the result holds the manager and so the instance. First called while the image is
  // loaded.
  static std::shared_ptr<T> GetHeldInstance() {
    State& state = GetState();
    auto manager = _AtExitManager<Tag>::LivingManager();
    if (manager == nullptr) return nullptr;
    MutexLock lock(state.lock);
    if (state.manager != manager.get()) {
      // An instance that is still there belongs to a manager on its way out, which deletes it.
      state.instance = MakeInstance(*manager);
      state.manager = manager.get();
    }
    return std::shared_ptr<T>(std::move(manager), state.instance);
  }

 private:
  using Manager = _AtExitManager<Tag>;

  struct State {
    _thread_recursive_mutex lock;
    T* instance ZO_GUARDED_BY(lock) = nullptr;             // Owned by the manager's exit task.
    const Manager* manager ZO_GUARDED_BY(lock) = nullptr;  // Whose instance it is.
  };

  // Not destroyed: other threads may be here while the process runs its exit handlers.
  static State& GetState() {
    static NoDestructor<State> state;
    static const bool registered = (OnForkedChild([] { state.Renew(); }), true);
    static_cast<void>(registered);
    return *state;
  }

  static T* MakeInstance(Manager& manager) {
    auto instance = std::make_shared<T>();
    T* const answer = instance.get();
    manager.RegisterTask([instance = std::move(instance), which = &manager]() mutable {
      Forget(which);
      instance.reset();
    });
    return answer;
  }

  static void Forget(const Manager* manager) {
    State& state = GetState();
    MutexLock lock(state.lock);
    if (state.manager != manager) return;
    state.instance = nullptr;
    state.manager = nullptr;
  }
};

}  // namespace zo_base
