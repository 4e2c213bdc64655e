#pragma once

#include <chrono>

namespace tarvel_cli {

// Blocks SIGINT, SIGTERM, SIGHUP and SIGPIPE and makes them a descriptor to wait for.
//
// Threads: any. Created before all other threads, which inherit the signal mask. A signal that has
// come is never taken back.
class StopSignals {
 public:
  StopSignals();  // Throws std::runtime_error when the system has no descriptor.
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Readable when the user wants to stop.
  int fd() const { return fd_; }
  // Waits for a signal; false when the limit passes first.
  bool Await(std::chrono::milliseconds limit) const;
  bool HaveCome() const { return Await(std::chrono::milliseconds(0)); }
  // The exit status that shells expect of a program that a signal ended: 130 for Ctrl-C. 0 when
  // none has come.
  int ExitStatus() const;

 private:
  int fd_ = -1;
};

}  // namespace tarvel_cli
