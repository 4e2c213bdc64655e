#include "tools/cli/stop_signals.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <stdexcept>

namespace tarvel_cli {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

}  // namespace

StopSignals::StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : kSignals) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  fd_ = signalfd(-1, &signals, SFD_CLOEXEC);
  if (fd_ < 0) throw std::runtime_error("no descriptor for signals");
}

StopSignals::~StopSignals() { close(fd_); }

int StopSignals::ExitStatus() const {
  constexpr int kEndedBySignal = 128;
  sigset_t pending;
  sigpending(&pending);
  for (const int signal : kSignals) {
    if (sigismember(&pending, signal) == 1) return kEndedBySignal + signal;
  }
  return 0;
}

// The signal is never read, so the descriptor stays readable.
bool StopSignals::Await(std::chrono::milliseconds limit) const {
  pollfd waited{fd_, POLLIN, 0};
  return poll(&waited, 1, static_cast<int>(limit.count())) == 1;
}

}  // namespace tarvel_cli
