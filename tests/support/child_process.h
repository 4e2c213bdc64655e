#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace test_support {

// Returned by a child's body when the system doesn't permit what it needs.
inline constexpr int kNotPermitted = 77;

// Runs `body` in a child process of one thread, which ends as a program does. Returns the wait
// status: 0 when the body returned 0 and none of its expectations failed.
inline int RunInChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    const int code = body();
    std::exit(testing::Test::HasFailure() ? 1 : code);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) continue;
  return status;
}

}  // namespace test_support

// Expects that `body` returns 0 in a child. Skips the test when the body returns kNotPermitted.
#define EXPECT_GOOD_CHILD(...)                                                                   \
  do {                                                                                           \
    const int child_status = ::test_support::RunInChild(__VA_ARGS__);                            \
    if (WIFEXITED(child_status) && WEXITSTATUS(child_status) == ::test_support::kNotPermitted) { \
      GTEST_SKIP() << "not permitted here";                                                      \
    }                                                                                            \
    EXPECT_EQ(child_status, 0);                                                                  \
  } while (false)
