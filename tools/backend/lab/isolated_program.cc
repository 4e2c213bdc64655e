#include "tools/backend/lab/isolated_program.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "tools/backend/lab/private_network.h"
#include "tools/terminal/messages.h"

namespace tarvel_backend {

namespace {

constexpr int kNotExecuted = 127;
constexpr int kSignalled = 128;

int ShellStatus(int wait_status) {
  return WIFSIGNALED(wait_status) ? kSignalled + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

int OpenOwnNetwork() { return open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC); }

// Forks into new namespaces. fork() can't, and after unshare() every later child of this process
// would be in the process namespace.
pid_t ForkIntoNamespaces() {
  clone_args arguments{};
  arguments.flags = CLONE_NEWPID | CLONE_NEWNS;
  arguments.exit_signal = SIGCHLD;
  return static_cast<pid_t>(syscall(SYS_clone3, &arguments, sizeof arguments));
}

[[noreturn]] void Execute(std::vector<char*> command, const sigset_t& signals) {
  pthread_sigmask(SIG_SETMASK, &signals, nullptr);
  execvp(command[0], command.data());
  tarvel_terminal::WriteError("can't execute " + std::string(command[0]) + ": " +
                              std::generic_category().message(errno));
  _exit(kNotExecuted);
}

// Returns when the program has ended.
int ServeAsInit(pid_t program) {
  sigset_t all;
  sigfillset(&all);
  for (;;) {
    siginfo_t signal{};
    if (sigwaitinfo(&all, &signal) < 0) continue;
    if (signal.si_signo != SIGCHLD) {
      // The kernel sends those of a terminal to the program too.
      if (signal.si_code != SI_KERNEL) kill(program, signal.si_signo);
      continue;
    }
    int status = 0;
    for (pid_t ended; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
      if (ended == program) return ShellStatus(status);
    }
  }
}

[[noreturn]] void RunInit(int start, const std::vector<char*>& command, const sigset_t& signals) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  char byte = 0;
  // The parent may have ended before prctl().
  if (read(start, &byte, 1) != 1) _exit(1);
  // Has the processes of this namespace. Containers may refuse it; little needs it.
  mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
  const pid_t program = fork();
  if (program < 0) _exit(1);
  if (program == 0) Execute(command, signals);
  _exit(ServeAsInit(program));
}

}  // namespace

IsolatedProgram::IsolatedProgram(const std::vector<std::string>& command, const sigset_t& signals) {
  std::vector<char*> pointers(command.size() + 1);  // The last one stays null.
  std::transform(command.begin(), command.end(), pointers.begin(),
                 [](const std::string& part) { return const_cast<char*>(part.c_str()); });
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) ThrowSystemError("no pipe");
  const int own_network = OpenOwnNetwork();
  if (unshare(CLONE_NEWNET) != 0) ThrowSystemError("no second network");
  network_ = OpenOwnNetwork();
  process_ = ForkIntoNamespaces();
  if (process_ == 0) {
    close(ends[1]);
    RunInit(ends[0], pointers, signals);
  }
  close(ends[0]);
  start_ = ends[1];
  if (process_ < 0) ThrowSystemError("no process in a new namespace");
  if (setns(own_network, CLONE_NEWNET) != 0)
    ThrowSystemError("no way back to the servers' network");
  close(own_network);
}

IsolatedProgram::~IsolatedProgram() {
  close(start_);
  Kill();
  while (process_ > 0 && waitpid(process_, nullptr, 0) < 0 && errno == EINTR) continue;
  close(network_);
}

void IsolatedProgram::Start() {
  if (write(start_, "s", 1) != 1) ThrowSystemError("the program does not start");
}

void IsolatedProgram::Signal(int signal) const {
  if (process_ > 0) kill(process_, signal);
}

void IsolatedProgram::Kill() const { Signal(SIGKILL); }

std::optional<int> IsolatedProgram::TakeStatus() {
  int status = 0;
  if (waitpid(process_, &status, WNOHANG) != process_) return std::nullopt;
  process_ = -1;
  return ShellStatus(status);
}

}  // namespace tarvel_backend
