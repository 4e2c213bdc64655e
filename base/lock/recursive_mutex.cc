#include "base/lock/recursive_mutex.h"

namespace zo_base {
namespace {

// Together 5 to 20 us, depending on the processor: longer than a log record holds its lock, and not
// much longer than a sleep and a wake-up.
constexpr int kAttempts = 100;
constexpr int kPausesBetweenAttempts = 4;

void PauseProcessor() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__arm__) && __ARM_ARCH >= 7)
  __asm__ volatile("yield");
#endif
}

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

void _thread_recursive_mutex::LockTaken() noexcept {
  for (int i = 0; i < kAttempts; ++i) {
    for (int pause = 0; pause < kPausesBetweenAttempts; ++pause) PauseProcessor();
    if (pthread_mutex_trylock(&mutex_) == 0) return;
  }
  pthread_mutex_lock(&mutex_);
}

}  // namespace zo_base
