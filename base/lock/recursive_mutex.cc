#include "base/lock/recursive_mutex.h"

namespace zo_base {
namespace {

void InitRecursive(pthread_mutex_t& mutex) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

}  // namespace

_thread_recursive_mutex::_thread_recursive_mutex() noexcept { InitRecursive(mutex_); }

_thread_recursive_mutex::~_thread_recursive_mutex() {
  if (pthread_mutex_trylock(&mutex_) == 0) {
    pthread_mutex_unlock(&mutex_);
  } else if (!pthread_equal(owner(), pthread_self())) {
    // Another thread holds it: destroy a new mutex in its place.
    InitRecursive(mutex_);
  }
  pthread_mutex_destroy(&mutex_);
}

}  // namespace zo_base
