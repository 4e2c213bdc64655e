#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

namespace test_support {

// A program that runs in parallel to the test. It is killed at the end of the scope, and told to
// end when the thread that started it ends.
class Program {
 public:
  // `arguments` begins with the path of the program. Throws when no process can be started.
  explicit Program(const std::vector<std::string>& arguments);
  ~Program();
  Program(const Program&) = delete;

  // Waits until the program has written `text` to standard output or standard error, after what the
  // last call waited for. Throws, with what was written, when it ends before.
  void AwaitOutput(const std::string& text);
  void Signal(int signal) const;  // Nothing once it is gone.
  void Kill();                    // And waits until it is gone.

  // Waits for the end. Returns the wait status.
  int Wait();
  // What was read so far; after Wait, all.
  const std::string& output() const { return output_; }

 private:
  pid_t process_ = -1;
  std::FILE* pipe_ = nullptr;  // Carries what it writes.
  std::string output_;
};

}  // namespace test_support
