#include "tools/terminal/standard_output.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>

#include "tools/terminal/messages.h"

namespace tarvel_terminal {

namespace {

constexpr int kFailed = 1;
constexpr int kEndedBySignal = 128;

std::mutex mutex;                  // Of standard output.
std::atomic<int> first_error = 0;  // An errno; 0 while all is written.

// Returns the number of bytes, or -1.
ssize_t WriteSome(std::string_view text) {
  for (;;) {
    const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
    if (written >= 0 || (errno != EINTR && errno != EAGAIN)) return written;
    pollfd output{STDOUT_FILENO, POLLOUT, 0};  // Somebody may have made it non-blocking.
    if (errno == EAGAIN) poll(&output, 1, -1);
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
  if (error == 0) return status;
  if (error == EPIPE) return kEndedBySignal + SIGPIPE;
  WriteError("can't write standard output: " + std::generic_category().message(error));
  return kFailed;
}

}  // namespace tarvel_terminal
