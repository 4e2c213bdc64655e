#include "tests/support/program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace test_support {

Program::Program(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (const auto& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0 || (process_ = fork()) < 0)
    throw std::runtime_error("no process");
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
  close(ends[1]);
  pipe_ = fdopen(ends[0], "r");
}

Program::~Program() {
  Kill();
  std::fclose(pipe_);
}

void Program::AwaitOutput(const std::string& text) {
  for (const std::size_t begin = output_.size(); output_.find(text, begin) == std::string::npos;) {
    const int byte = std::getc(pipe_);
    if (byte == EOF) throw std::runtime_error("a program has ended early: " + output_);
    output_ += static_cast<char>(byte);
  }
}

void Program::Signal(int signal) const {
  if (process_ > 0) kill(process_, signal);
}

void Program::Kill() {
  Signal(SIGKILL);
  if (process_ > 0) waitpid(std::exchange(process_, -1), nullptr, 0);
}

int Program::Wait() {
  for (int byte; (byte = std::getc(pipe_)) != EOF;) output_ += static_cast<char>(byte);
  int status = 0;
  waitpid(std::exchange(process_, -1), &status, 0);
  return status;
}

}  // namespace test_support
