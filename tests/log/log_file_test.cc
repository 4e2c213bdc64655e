#include "base/log_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <latch>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/temp_directory.h"

namespace zo_base {
namespace {

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
    LogFile log;
    ASSERT_EQ(log.Open(path_, static_cast<std::uint32_t>(row.limit), 0), kLogReady);
    log.AppendToFile("+");
    EXPECT_EQ(ReadFile(path_), (Pattern(row.before) + "+").substr(row.cut)) << row.name;
    EXPECT_FALSE(std::filesystem::exists(path_ + ".tmp")) << row.name;
  }
}

TEST_F(LogFileTest, IsNotReplacedByATemporaryFileThatWasPlanted) {
  WriteFile(path_ + ".elsewhere", "precious");
  std::filesystem::create_symlink(path_ + ".elsewhere", path_ + ".tmp");
  WriteFile(path_, Pattern(100));
  LogFile log;
  ASSERT_EQ(log.Open(path_, 100, 0), kLogReady);
  log.AppendToFile("+");
  EXPECT_EQ(ReadFile(path_), (Pattern(100) + "+").substr(50));
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path_)));
  EXPECT_EQ(ReadFile(path_ + ".elsewhere"), "precious");
}

TEST_F(LogFileTest, OpensAgainAfterACloseAndWritesWhatItHoldsWhenItIsDestroyedOpen) {
  {
    LogFile log;
    log.Write("dropped");
    ASSERT_EQ(log.Open(path_, 0, 0), kLogReady);
    log.Write("one ");
    EXPECT_EQ(log.Open(path_, 0, 0), kLogReady);  // Open already.
    log.Close();
    log.Write("dropped");
    ASSERT_EQ(log.Open(path_, 0, 0), kLogReady);
    log.Write("two");
  }
  EXPECT_EQ(ReadFile(path_), "one two");
}

TEST_F(LogFileTest, KeepsItsFilesPrivateAndFromChildren) {
  LogFile log;
  ASSERT_EQ(log.Open(path_, 0, 0), kLogReady);
  log.AppendToFile("text");
  for (const std::string& file : {path_, path_ + ".kvr_mmap"}) {
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u) << file;
  }
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry, gone).string().find(directory_.path()) == 0) {
      EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
    }
  }
}

TEST_F(LogFileTest, TwoOfOnePathWriteWholeRecordsAndLoseNone) {
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

}  // namespace
}  // namespace zo_base
