#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace test_support {

// What a child's body answers when the system doesn't permit what it needs.
inline constexpr int kNotPermitted = 77;

// Runs `body` in a child process of one thread, and lets that end as a program does. Answers the
// wait status: 0 when the body answered 0. Expectations of gtest that fail in the body make it 1.
inline int RunInChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    int code = body();
    if (testing::Test::HasFailure()) code = 1;
    std::exit(code);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return status;
}

}  // namespace test_support

// Expects that `body` answers 0 in a child; skips the test where it isn't permitted.
#define EXPECT_GOOD_CHILD(...)                                                                   \
  do {                                                                                           \
    const int child_status = ::test_support::RunInChild(__VA_ARGS__);                            \
    if (WIFEXITED(child_status) && WEXITSTATUS(child_status) == ::test_support::kNotPermitted) { \
      GTEST_SKIP() << "not permitted here";                                                      \
    }                                                                                            \
    EXPECT_EQ(child_status, 0);                                                                  \
  } while (false)
