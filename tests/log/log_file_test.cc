#include "base/log_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <latch>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/temp_directory.h"

namespace zo_base {
namespace {

namespace fs = std::filesystem;
using test_support::ReadFile;
using test_support::TempDirectory;
using test_support::WriteFile;

// Text whose every place can be told: the byte at n is that of n modulo a prime.
std::string Pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + i % 89);
  return text;
}

class LogFileTest : public ::testing::Test {
 protected:
  const TempDirectory directory_;
  const std::string path_ = directory_ / "test.log";
};

TEST_F(LogFileTest, CutsHalfOfTheLimitOffTheFrontWhenTheLimitIsReached) {
  const std::string elsewhere = path_ + ".elsewhere";
  WriteFile(elsewhere, "precious");
  const struct {
    const char* name;
    std::size_t before, limit;
    std::size_t cut;  // From the front, after one byte was appended.
  } rows[] = {{"below", 98, 100, 0},
              {"at", 99, 100, 50},
              {"far above", 20000, 16000, 8000},
              {"odd limit", 101, 101, 50}};
  for (const auto& row : rows) {
    WriteFile(path_, Pattern(row.before));
    fs::create_symlink(elsewhere, path_ + ".tmp");  // Planted.
    LogFile log;
    ASSERT_EQ(log.Open(path_, static_cast<std::uint32_t>(row.limit), 0), kLogReady);
    log.AppendToFile("+");
    EXPECT_EQ(ReadFile(path_), (Pattern(row.before) + "+").substr(row.cut)) << row.name;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path_))) << row.name;
    EXPECT_EQ(ReadFile(elsewhere), "precious") << row.name;
    fs::remove(path_ + ".tmp");
  }
}

TEST_F(LogFileTest, TwoOfOnePathWriteWholeRecordsLoseNoneAndKeepThemPrivate) {
  constexpr int kRecords = 3000;
  std::latch both_open(2);
  const auto write = [&](char mark) {
    LogFile log;
    EXPECT_EQ(log.Open(path_, 0, 512), kLogReady);
    both_open.arrive_and_wait();
    for (int i = 0; i < kRecords; ++i) log.Write(std::string(20, mark) + "\n");
  };
  std::thread other([&] { write('b'); });
  write('a');
  other.join();
  std::map<std::string, int> count;
  std::istringstream lines(ReadFile(path_));
  for (std::string line; std::getline(lines, line);) ++count[line];
  const std::map<std::string, int> whole = {{std::string(20, 'a'), kRecords},
                                            {std::string(20, 'b'), kRecords}};
  EXPECT_EQ(count, whole);
  for (const std::string& file : {path_, path_ + ".kvr_mmap"}) {
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600)) << file;
  }
}

// A stopped process may hold the lock of the log for ever.
TEST_F(LogFileTest, GoesOnWithoutTheLockOfAProcessThatDoesNotLetGo) {
  WriteFile(path_, "");
  const int held = open(path_.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  LogFile log;
  ASSERT_EQ(log.Open(path_, 4, 0), kLogReady);
  log.AppendToFile("text");
  EXPECT_EQ(ReadFile(path_), "text");
  close(held);
}

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
    // What was on its way from the buffer to the log when the process died may be there twice.
    const std::string text = ReadFile(path);
    std::size_t at = 0;
    for (std::uint32_t number = 0; number < count; ++number) {
      at = text.find(RecordOf(number), at);
      ASSERT_NE(at, std::string::npos) << "record " << number << " of " << count;
    }
  }
  EXPECT_GT(total, 300u);  // Else nothing was put to the test.
}

}  // namespace
}  // namespace zo_base
