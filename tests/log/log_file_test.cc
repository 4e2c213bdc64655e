#include "base/log_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
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
#include <vector>

#include "base/log_file_buffer.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_directory.h"

// While one lives, a signal interrupts every other call of its thread to the functions below, which
// stand in for those of the C library.
static thread_local int calls = -1;
struct Interruptions {
  Interruptions() { calls = 0; }
  ~Interruptions() { calls = -1; }
};

static bool Interrupted() { return calls >= 0 && ++calls % 2 == 1 && (errno = EINTR) != 0; }
extern "C" int open(const char* path, int flags, ...) {
  return Interrupted() ? -1 : openat(AT_FDCWD, path, flags, 0600);
}
extern "C" ssize_t pread(int fd, void* out, std::size_t size, off_t at) {
  return Interrupted() ? -1 : syscall(SYS_pread64, fd, out, size, at);
}
extern "C" ssize_t pwrite(int fd, const void* data, std::size_t size, off_t at) {
  return Interrupted() ? -1 : syscall(SYS_pwrite64, fd, data, size, at);
}
extern "C" int flock(int fd, int operation) noexcept {
  return Interrupted() ? -1 : static_cast<int>(syscall(SYS_flock, fd, operation));
}
extern "C" int ftruncate(int fd, off_t size) noexcept {
  return Interrupted() ? -1 : static_cast<int>(syscall(SYS_ftruncate, fd, size));
}

namespace zo_base {
namespace {

namespace fs = std::filesystem;
using test_support::ReadFile;
using test_support::TempDirectory;
using test_support::WriteFile;

constexpr std::size_t kSize = 65536;

// Text as it stands in the log after it was recovered.
std::string Recovered(const std::string& text) {
  return "\r\n -----------------------load from mmap file begin-----------------------\r\n" + text +
         "\r\n -----------------------load from mmap file end-----------------------\r\n";
}

// A companion of `size` bytes whose count says `used`, as the machine writes it.
std::string CompanionOf(std::int32_t used, const std::string& text, std::size_t size) {
  std::string content(reinterpret_cast<const char*>(&used), sizeof used);
  content += text;
  content.resize(size, '\0');
  return content;
}

TEST(FoundCompanionTest, IsSentToTheSinkAndMadeReady) {
  const std::string full(kSize - 4, 't');
  const struct {
    const char* name;
    std::string found;
    std::string log_text;  // What reaches the sink.
    std::int32_t result;
  } rows[] = {
      {"of length zero", "", "", 0},
      {"filled to the last byte", CompanionOf(65532, full, kSize), Recovered(full), 0},
      {"count one too high", CompanionOf(65533, full, kSize), "", 3},
      {"count negative", CompanionOf(-1, "text", kSize), "", 3},
      {"shorter", CompanionOf(4, "text", 4096), Recovered("text"), 0},
      {"longer", CompanionOf(4, "text", 2 * kSize), Recovered("text"), 0},
      {"shorter with count too high", CompanionOf(4093, "text", 4096), "", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const TempDirectory directory;
    const std::string companion = directory / "companion";
    WriteFile(companion, row.found);
    const Interruptions interruptions;
    std::string log_text;
    LogFileBuffer buffer([&](const std::string& text) {
      log_text += text;
      return true;
    });
    EXPECT_EQ(buffer.Init(companion, kSize), row.result);
    EXPECT_EQ(log_text, row.log_text);
    EXPECT_EQ(ReadFile(companion), std::string(kSize, '\0'));
    EXPECT_TRUE(buffer.ready());
  }
}

class LogFileBufferTest : public ::testing::Test {
 protected:
  // Usable bytes of a small buffer: `kSmall` less the header, and less one that is never filled.
  static constexpr std::uint32_t kSmall = 32;

  LogFileBufferTest() { EXPECT_EQ(buffer_.Init(companion_, kSmall), kLogReady); }

  const Interruptions interruptions_;
  const TempDirectory directory_;
  const std::string companion_ = directory_ / "companion";
  bool sink_cuts_ = false;
  std::vector<std::string> sunk_;
  LogFileBuffer buffer_{[this](const std::string& text) {
    sunk_.push_back(text);
    return !sink_cuts_ || truncate(companion_.c_str(), 0) == 0;
  }};
};

TEST_F(LogFileBufferTest, KeepsRecordsInTheFileUntilOneDoesNotFit) {
  buffer_.Append("0123456789");
  buffer_.Append("abcdefghijklmnopq");
  EXPECT_TRUE(sunk_.empty());
  EXPECT_EQ(ReadFile(companion_), CompanionOf(27, "0123456789abcdefghijklmnopq", kSmall));
  buffer_.Append("r");  // 27 + 1 + 4 is the size: one that would fill it exactly.
  buffer_.Append("before ");
  buffer_.Append(std::string(70000, 'x'));
  EXPECT_EQ(sunk_, (std::vector<std::string>{"0123456789abcdefghijklmnopqr",
                                             "before " + std::string(70000, 'x')}));
  EXPECT_EQ(ReadFile(companion_), std::string(kSmall, '\0'));
}

TEST_F(LogFileBufferTest, GoesOnAfterItsFileWasCutShort) {
  // To nothing, and inside its last page.
  for (const off_t length : {off_t{0}, off_t{kSmall - 1}}) {
    buffer_.Append("lost");
    ASSERT_EQ(truncate(companion_.c_str(), length), 0);
    buffer_.Append("found");
    EXPECT_EQ(ReadFile(companion_), CompanionOf(5, "found", kSmall));
  }
  sink_cuts_ = true;
  buffer_.Flush();
  EXPECT_EQ(ReadFile(companion_), std::string(kSmall, '\0'));
  EXPECT_EQ(sunk_, std::vector<std::string>{"found"});
}

TEST_F(LogFileBufferTest, IsLeftAloneByItsForkedChildAndByASecondOne) {
  buffer_.Append("parent ");
  EXPECT_GOOD_CHILD([this] {
    buffer_.Append("child");
    buffer_.Close();
    return 0;
  });
  std::string second_log;
  LogFileBuffer second([&](const std::string& text) { return second_log += text, true; });
  EXPECT_EQ(second.Init(companion_, 4096), kLogReady);  // Another length is no reason to touch it.
  second.Append("second");
  EXPECT_EQ(ReadFile(companion_), CompanionOf(7, "parent ", kSmall));
  second.Close();
  EXPECT_EQ(second_log, "second");
  buffer_.Append("goes on");
  buffer_.Close();
  EXPECT_EQ(sunk_, std::vector<std::string>{"parent goes on"});
}

// Text whose every place can be told: the byte at n is that of n modulo a prime.
std::string Pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + i % 89);
  return text;
}

class LogFileTest : public ::testing::Test {
 protected:
  const Interruptions interruptions_;
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
  } rows[] = {{"below", 98, 100, 0}, {"at", 99, 100, 50}, {"odd limit", 101, 101, 50}};
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
  fs::resize_file(path_, 100 << 20);  // So far above that the copy would be costly.
  LogFile log;
  ASSERT_EQ(log.Open(path_, 100, 0), kLogReady);
  log.AppendToFile("+");
  EXPECT_EQ(fs::file_size(path_), 32 << 20);
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
  EXPECT_EQ(count.size(), 2U);
  EXPECT_EQ(count[std::string(20, 'a')] + count[std::string(20, 'b')], 2 * kRecords);
  for (const std::string& file : {path_, path_ + ".kvr_mmap"}) {
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600)) << file;
  }
}

pid_t child_of_a_write = 0;

void ForkAChildThatLivesOn(int) {
  child_of_a_write = fork();
  if (child_of_a_write != 0) return;
  alarm(60);
  while (true) pause();
}

TEST_F(LogFileTest, LeavesNoLockWithAChildThatWasForkedOffInTheMiddleOfAnAppend) {
  {
    LogFile log;
    ASSERT_EQ(log.Open(path_, 0, 0), kLogReady);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit none{0, before.rlim_max};
    signal(SIGXFSZ, ForkAChildThatLivesOn);
    setrlimit(RLIMIT_FSIZE, &none);  // The signal comes within the write, under the lock.
    log.AppendToFile("lost");
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_DFL);
  }
  ASSERT_GT(child_of_a_write, 0);
  LogFile log;
  EXPECT_EQ(log.Open(path_, 100, kSize), kLogReady);
  log.Write("kept");
  EXPECT_EQ(ReadFile(path_ + ".kvr_mmap"), CompanionOf(4, "kept", kSize));
  log.AppendToFile(Pattern(100));  // Only under the lock is the log cut.
  EXPECT_EQ(ReadFile(path_), Pattern(100).substr(50));
  kill(child_of_a_write, SIGKILL);
  EXPECT_EQ(waitpid(child_of_a_write, nullptr, 0), child_of_a_write);
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

TEST(LogCrashTest, NoRecordWhoseCallHasReturnedIsLostByAKilledProcess) {
  std::minstd_rand random(20260101);
  std::uint32_t total = 0;
  for (int round = 0; round < 300; ++round) {
    const TempDirectory directory;
    const std::string path = directory / "crash.log";
    int returned[2];
    ASSERT_EQ(pipe(returned), 0);
    const pid_t child = fork();
    if (child == 0) WriteForEver(path, returned[1]);
    close(returned[1]);
    std::uint32_t number = 0, count = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 8000);
    while (std::chrono::steady_clock::now() < end) {
      if (read(returned[0], &number, sizeof number) == sizeof number) count = number + 1;
    }
    kill(child, SIGKILL);
    while (read(returned[0], &number, sizeof number) == sizeof number) count = number + 1;
    close(returned[0]);
    waitpid(child, nullptr, 0);
    total += count;

    LogFile next_start;
    ASSERT_EQ(next_start.Open(path, 0, 1024), kLogReady);
    next_start.Close();
    // What was on its way from the buffer to the log when the process died may be there twice.
    const std::string text = ReadFile(path);
    std::size_t at = 0;
    for (number = 0; number < count; ++number) {
      at = text.find(RecordOf(number), at);
      ASSERT_NE(at, std::string::npos) << "record " << number << " of " << count;
    }
  }
  EXPECT_GT(total, 300u);  // Else nothing was put to the test.
}

}  // namespace
}  // namespace zo_base
