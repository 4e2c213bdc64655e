#include "tools/terminal/standard_output.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <mutex>
#include <system_error>

#include "tools/terminal/messages.h"

namespace tarvel_terminal {

namespace {

constexpr int kFailed = 1;
constexpr int kEndedBySignal = 128;
constexpr int kLookForStopMs = 50;
constexpr int kStopped = ECANCELED;  // No write fails with it.

std::mutex mutex;                  // Of standard output.
std::atomic<int> first_error = 0;  // An errno; 0 while all is written.

// Returns whether the user wants to stop: such a signal, which the tool has blocked, has come.
bool IsStopPending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1 ||
         sigismember(&pending, SIGHUP) == 1;
}

// Waits until standard output takes some bytes. A reader may have stopped reading for good, so a
// stop signal ends the wait, and the function returns false.
bool AwaitReader() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  while (poll(&output, 1, kLookForStopMs) == 0) {
    if (IsStopPending()) return false;
  }
  return true;
}

// Returns the number of bytes, or -1 with an errno, which is kStopped after a stop signal.
ssize_t WriteSome(std::string_view text) {
  for (;;) {
    if (!AwaitReader()) {
      errno = kStopped;
      return -1;
    }
    // So many don't block when a pipe takes some.
    const std::size_t size = std::min<std::size_t>(text.size(), PIPE_BUF);
    const ssize_t written = write(STDOUT_FILENO, text.data(), size);
    if (written >= 0 || (errno != EINTR && errno != EAGAIN)) return written;
  }
}

}  // namespace

void ReserveStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest free number is this one. Reading from it and writing to it must fail as before.
    const int mode = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (open("/dev/null", mode | O_CLOEXEC) < 0) return;
  }
}

bool WriteOutput(std::string_view text) {
  const std::lock_guard lock(mutex);
  while (!text.empty() && first_error == 0) {
    const ssize_t written = WriteSome(text);
    if (written < 0) {
      first_error = errno;
    } else {
      text.remove_prefix(static_cast<std::size_t>(written));
    }
  }
  return first_error == 0;
}

int StatusWithOutput(int status) {
  const int error = first_error;
  if (error == 0 || error == kStopped) return status;
  if (error == EPIPE) return kEndedBySignal + SIGPIPE;
  WriteError("can't write standard output: " + std::generic_category().message(error));
  return kFailed;
}

}  // namespace tarvel_terminal
