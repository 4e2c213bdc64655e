#pragma once

#include <chrono>

namespace tarvel_cli {

// Ctrl-C, SIGTERM and the terminal's end, as something to wait for: they don't end the process.
//
// Threads: any. Made before any other thread starts, which inherits this. Once the user wants to
// stop, that stays so.
class StopSignals {
 public:
  StopSignals();  // Throws std::runtime_error when the system has no descriptor.
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Readable when the user wants to stop.
  int fd() const { return fd_; }
  // Waits until then, or until the limit has passed: false.
  bool Await(std::chrono::milliseconds limit) const;
  bool HaveCome() const { return Await(std::chrono::milliseconds(0)); }

 private:
  int fd_ = -1;
};

}  // namespace tarvel_cli
