#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <random>
#include <string>

#include "base/log_file.h"
#include "tests/support/temp_directory.h"

namespace zo_base {
namespace {

using test_support::ReadFile;
using test_support::TempDirectory;

std::string RecordOf(std::uint32_t number) {
  return "record " + std::to_string(number) + " " + std::string(number % 50, '.') + " end\n";
}

// Writes records until it is killed, and tells through the pipe of each one whose call has
// returned.
[[noreturn]] void WriteForEver(const std::string& path, int returned) {
  LogFile log;
  log.Open(path, 0, 1024);
  for (std::uint32_t number = 0;; ++number) {
    log.Write(RecordOf(number));
    if (write(returned, &number, sizeof number) != sizeof number) _exit(1);
  }
}

// Kills a writing child at a random moment. Answers how many of its records had returned.
std::uint32_t RunAndKill(const std::string& path, std::chrono::microseconds after) {
  int returned[2];
  EXPECT_EQ(pipe(returned), 0);
  const pid_t child = fork();
  if (child == 0) WriteForEver(path, returned[1]);
  close(returned[1]);
  std::uint32_t number = 0, count = 0;
  const auto end = std::chrono::steady_clock::now() + after;
  while (std::chrono::steady_clock::now() < end) {
    if (read(returned[0], &number, sizeof number) == sizeof number) count = number + 1;
  }
  kill(child, SIGKILL);
  while (read(returned[0], &number, sizeof number) == sizeof number) count = number + 1;
  close(returned[0]);
  waitpid(child, nullptr, 0);
  return count;
}

// Each record is in the log, whole and after the one before it. What was on its way from the buffer
// to the log when the process died may be there twice.
void ExpectRecordsInOrder(const std::string& log_text, std::uint32_t count) {
  std::size_t at = 0;
  for (std::uint32_t number = 0; number < count; ++number) {
    const std::size_t found = log_text.find(RecordOf(number), at);
    ASSERT_NE(found, std::string::npos) << "record " << number << " of " << count;
    at = found;
  }
}

TEST(LogCrashTest, NoRecordWhoseCallHasReturnedIsLostByAKilledProcess) {
  std::minstd_rand random(20260101);
  std::uint32_t total = 0;
  for (int round = 0; round < 300; ++round) {
    const TempDirectory directory;
    const std::string path = directory / "crash.log";
    const std::uint32_t count = RunAndKill(path, std::chrono::microseconds(random() % 8000));
    total += count;
    LogFile next_start;
    ASSERT_EQ(next_start.Open(path, 0, 1024), kLogReady);
    next_start.Close();
    ASSERT_NO_FATAL_FAILURE(ExpectRecordsInOrder(ReadFile(path), count));
  }
  EXPECT_GT(total, 300u);  // Else nothing was put to the test.
}

}  // namespace
}  // namespace zo_base
