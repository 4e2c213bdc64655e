#pragma once

#include <signal.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tarvel_backend {

// The user's program in a network of its own and a process namespace of its own. Its first process
// there is an init of ours, which starts the program, passes signals on, and ends with it. The
// kernel then kills all that the program has started; it kills them too when this process ends
// before, however it ends.
//
// Threads: the one that created it; the process has no other one until the constructor returns.
class IsolatedProgram {
 public:
  // `command` is the program and its arguments. The program does not run yet. `signals` is its
  // signal mask. Throws std::runtime_error.
  IsolatedProgram(const std::vector<std::string>& command, const sigset_t& signals);
  ~IsolatedProgram();  // Kills it.
  IsolatedProgram(const IsolatedProgram&) = delete;
  IsolatedProgram& operator=(const IsolatedProgram&) = delete;

  // Of init.
  pid_t process() const { return process_; }
  // The program's network, a descriptor of its namespace. It outlives the program.
  int network() const { return network_; }

  void Start();
  // Sends it to the program alone.
  void Signal(int signal) const;
  // Kills all that runs there.
  void Kill() const;
  // Returns nullopt while it runs, then its status as a shell has it: 128 + n after a signal n, 127
  // when it could not be executed. Call it after each SIGCHLD.
  std::optional<int> TakeStatus();

 private:
  pid_t process_ = -1;  // -1 once it has ended.
  int network_ = -1;
  int start_ = -1;  // A pipe on which init waits.
};

}  // namespace tarvel_backend
