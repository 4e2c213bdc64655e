#include "tests/support/program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace test_support {

Program::Program(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) {
    pointers.push_back(const_cast<char*>(argument.c_str()));
  }
  pointers.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
  close(ends[1]);
  pipe_ = ends[0];
  if (process_ < 0) throw std::runtime_error("no process");
}

Program::~Program() {
  Kill();
  close(pipe_);
}

bool Program::Read() {
  std::array<char, 4096> bytes;
  ssize_t count = 0;
  do {
    count = read(pipe_, bytes.data(), bytes.size());
  } while (count < 0 && errno == EINTR);
  if (count > 0) output_.append(bytes.data(), static_cast<std::size_t>(count));
  return count > 0;
}

void Program::AwaitOutput(const std::string& text) {
  std::size_t found = 0;
  while ((found = output_.find(text, awaited_)) == std::string::npos) {
    if (!Read()) throw std::runtime_error("a program has ended early: " + output_);
  }
  awaited_ = found + text.size();
}

void Program::Signal(int signal) const {
  if (process_ > 0) kill(process_, signal);
}

void Program::Kill() {
  if (process_ <= 0) return;
  Signal(SIGKILL);
  waitpid(std::exchange(process_, -1), nullptr, 0);
}

int Program::Wait() {
  while (Read()) continue;
  int status = 0;
  waitpid(std::exchange(process_, -1), &status, 0);
  return status;
}

}  // namespace test_support
