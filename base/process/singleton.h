#pragma once

#include <memory>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/process/at_exit_manager.h"
#include "base/process/no_destructor.h"

namespace zo_base {

template <class T, class Tag, bool kWithAtExitManager>
class Singleton;

// One `T` for as long as somebody holds the at-exit manager of `Tag`; after that, a fresh one for
// the next holder.
//
// Threads: any.
template <class T, class Tag>
class Singleton<T, Tag, true> {
 public:
  // Null when nobody holds a manager. Good while the caller knows that the manager is held.
  static T* GetInstance_WithAtExitManager() { return GetHeldInstance().get(); }

  // First called while the image is loaded. The same, holding the manager, and so the instance, for
  // as long as the answer lives.
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
