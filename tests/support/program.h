#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace test_support {

// A program that runs beside the test. It is killed at the end of the scope, and told to end when
// the thread ends that has started it.
class Program {
 public:
  // `arguments` begins with the path of the program. Throws when there is no process to be had.
  explicit Program(const std::vector<std::string>& arguments);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Waits until the program has written `text` to standard output or standard error, behind what
  // the last call waited for. Throws, with what was written, when it ends before.
  void AwaitOutput(const std::string& text);
  void Signal(int signal) const;  // Nothing once it is gone.
  void Kill();                    // And waits until it is gone.

  // Waits for the end. Answers what waitpid says of it.
  int Wait();
  // All that was read so far; all that there is after Wait.
  const std::string& output() const { return output_; }

 private:
  bool Read();

  pid_t process_ = -1;
  int pipe_ = -1;  // Of what it writes.
  std::string output_;
  std::size_t awaited_ = 0;  // Where the last text that was waited for ends.
};

}  // namespace test_support
