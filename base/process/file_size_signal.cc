#include "base/process/file_size_signal.h"

#include <cerrno>
#include <ctime>

namespace zo_base {

FileSizeSignalBlocked::FileSizeSignalBlocked() {
  sigset_t waiting;
  sigpending(&waiting);
  waited_before_ = sigismember(&waiting, SIGXFSZ) == 1;
  sigemptyset(&signal_);
  sigaddset(&signal_, SIGXFSZ);
  pthread_sigmask(SIG_BLOCK, &signal_, &blocked_before_);
}

// Keeps errno, which tells why a write has failed.
FileSizeSignalBlocked::~FileSizeSignalBlocked() {
  const int error = errno;
  const timespec at_once{};
  if (!waited_before_) sigtimedwait(&signal_, nullptr, &at_once);
  pthread_sigmask(SIG_SETMASK, &blocked_before_, nullptr);
  errno = error;
}

}  // namespace zo_base
