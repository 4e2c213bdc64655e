#pragma once

#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

// A client's function with its user pointer. Get copies both, so that the call holds no lock.
//
// Threads: any.
template <class Function>
class ClientCallback {
 public:
  struct Pair {
    Function function = nullptr;
    void* user = nullptr;
  };

  void Set(Function function, void* user) {
    zo_base::MutexLock hold(lock_);
    pair_ = {function, user};
  }
  Pair Get() const {
    zo_base::MutexLock hold(lock_);
    return pair_;
  }

 private:
  mutable zo_base::_thread_recursive_mutex lock_;
  Pair pair_ ZO_GUARDED_BY(lock_);
};

}  // namespace zo_tarvel
