#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/process/forked_child.h"
#include "base/process/no_destructor.h"
#include "base/process/process_exit.h"

namespace zo_base {

// Separates this library's at-exit state from other users of the same templates in the process.
// Never defined.
class TarvelObject;

template <class Tag>
class IAtExitManager {
 public:
  virtual ~IAtExitManager() = default;
  virtual void RegisterCallback(std::function<void(void*)> function, void* parameter) = 0;
  virtual void RegisterTask(std::function<void()> task) = 0;
};

// Ends process-level objects together with the environment. When the last holder releases the
// manager, its tasks run, the one registered last comes first.
//
// Threads: any. Tasks run on the releasing thread, under the manager's lock; a task may register
// another, which runs next.
template <class Tag>
class _AtExitManager final : public IAtExitManager<Tag> {
 public:
  _AtExitManager() = default;
  ~_AtExitManager() override { RunTasks(); }

  void RegisterCallback(std::function<void(void*)> function, void* parameter) override {
    RegisterTask([function = std::move(function), parameter] { function(parameter); });
  }

  void RegisterTask(std::function<void()> task) override {
    MutexLock held(lock);
    tasks.push_back(std::move(task));
  }

  // The living manager, or a new one, and whether this call has created it. A new manager without
  // a holder is destroyed at once.
  static std::pair<std::shared_ptr<_AtExitManager>, bool> GetAtExitManager() {
    Reference& reference = LivingReference();
    MutexLock lock(reference.lock);
    if (auto living = reference.manager.lock()) return {std::move(living), false};
    auto created = std::make_shared<_AtExitManager>();
    reference.manager = created;
    return {std::move(created), true};
  }

  // The living manager, or null. First called while the image is loaded.
  static std::shared_ptr<_AtExitManager> LivingManager() {
    Reference& reference = LivingReference();
    MutexLock lock(reference.lock);
    return reference.manager.lock();
  }

 private:
  struct Reference {
    _thread_recursive_mutex lock;
    std::weak_ptr<_AtExitManager> manager ZO_GUARDED_BY(lock);
  };

  // Never destroyed, for threads that still log while the process ends. The reference is released
  // at exit.
  static Reference& LivingReference() {
    static NoDestructor<Reference> reference;
    static const bool registered = [] {
      OnForkedChild([] { reference.Renew(); });
      OnProcessExitOrUnload([] {
        if (InForkedChild()) return;
        MutexLock lock(reference->lock);
        reference->manager.reset();
      });
      return true;
    }();
    static_cast<void>(registered);
    return *reference;
  }

  void RunTasks() {
    MutexLock held(lock);
    while (!tasks.empty()) {
      const std::function<void()> task = std::move(tasks.back());
      tasks.pop_back();
      if (task) task();
    }
  }

  _thread_recursive_mutex lock;
  std::deque<std::function<void()>> tasks ZO_GUARDED_BY(lock);
};

// The manager of `Tag` and whether this call has created it.
template <class Tag>
std::pair<std::shared_ptr<_AtExitManager<Tag>>, bool> GetAtExitManager() {
  return _AtExitManager<Tag>::GetAtExitManager();
}

}  // namespace zo_base
