#include "base/log/log_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <latch>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/log/log.h"
#include "base/log/log_file_buffer.h"
#include "base/thread/base_thread.h"
#include "tests/support/child_process.h"
#include "tests/support/mailbox.h"
#include "tests/support/test_settings.h"

namespace fs = std::filesystem;
using namespace test_support;

// Whether a signal interrupts every other call of each of these.
static thread_local bool interrupts = false;

#define INTERRUPTED(type, name, parameters, ...)                        \
  extern "C" type name parameters {                                     \
    static thread_local bool again = false;                             \
    if (interrupts && (again = !again)) return errno = EINTR, type{-1}; \
    return static_cast<type>(syscall(__VA_ARGS__));                     \
  }
INTERRUPTED(int, open, (const char* path, int flags, ...), SYS_openat, AT_FDCWD, path, flags, 0600)
INTERRUPTED(int, flock, (int fd, int how) noexcept, SYS_flock, fd, how)
INTERRUPTED(int, ftruncate, (int fd, off_t size) noexcept, SYS_ftruncate, fd, size)
INTERRUPTED(ssize_t, pread, (int fd, void* to, size_t n, off_t at), SYS_pread64, fd, to, n, at)
INTERRUPTED(ssize_t, pwrite, (int fd, const void* p, size_t n, off_t a), SYS_pwrite64, fd, p, n, a)

namespace zo_base {
namespace {

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

// Text whose every place can be told: the byte at n is that of n modulo a prime.
std::string Pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + i % 89);
  return text;
}

class LogFileTest : public ::testing::Test {
 protected:
  LogFileTest() { interrupts = true; }
  ~LogFileTest() override { interrupts = false; }

  const TempDirectory directory_;
  const std::string path_ = directory_ / "test.log";
  const std::string companion_ = path_ + ".kvr_mmap";
};

TEST_F(LogFileTest, RecoversTheTextOfAFoundCompanion) {
  const std::string full(kSize - 4, 't');
  const struct {
    std::string name, found;
    std::string log_text;  // What reaches the sink.
    std::int32_t result;
  } rows[] = {
      {"of length zero", "", "", 0},
      {"filled to the last byte", CompanionOf(65532, full, kSize), Recovered(full), 0},
      {"count one too high", CompanionOf(65533, full, kSize), "", 3},
      {"count negative", CompanionOf(-1, "text", kSize), "", 3},
      {"shorter", CompanionOf(4, "text", 4096), Recovered("text"), 0},
      {"shorter with count too high", CompanionOf(4093, "text", 4096), "", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    WriteFile(companion_, row.found);
    std::string log_text;
    LogFileBuffer buffer([&](const std::string& text) { return log_text += text, true; });
    EXPECT_EQ(buffer.Init(companion_, kSize), row.result);
    EXPECT_EQ(log_text, row.log_text);
    EXPECT_EQ(ReadFile(companion_), std::string(kSize, '\0'));
    EXPECT_TRUE(buffer.ready());
  }
}

class LogFileBufferTest : public LogFileTest {
 protected:
  // Usable bytes of a small buffer: `kSmall` less the header, and less one that is never filled.
  static constexpr std::uint32_t kSmall = 32;

  LogFileBufferTest() { EXPECT_EQ(buffer_.Init(companion_, kSmall), kLogReady); }

  bool sink_cuts_ = false;
  std::vector<std::string> sunk_;
  LogFileBuffer buffer_{[this](const std::string& text) {
    sunk_.push_back(text);
    return !sink_cuts_ || truncate(companion_.c_str(), 0) == 0;
  }};
};

TEST_F(LogFileBufferTest, KeepsRecordsUntilOneDoesNotFit) {
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

TEST_F(LogFileBufferTest, IsNeverSharedWithAnotherBuffer) {
  buffer_.Append("parent ");
  EXPECT_GOOD_CHILD([this] { return buffer_.Append("child"), buffer_.Close(), 0; });
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

TEST_F(LogFileTest, CutsHalfTheLimitOffAFullLog) {
  const std::string elsewhere = path_ + ".elsewhere";
  WriteFile(elsewhere, "precious");
  // The size before, the limit, and what is cut off the front after one byte was appended.
  const std::array<std::uint32_t, 3> rows[] = {{98, 100, 0}, {99, 100, 50}, {101, 101, 50}};
  for (const auto& [before, limit, cut] : rows) {
    WriteFile(path_, Pattern(before));
    fs::create_symlink(elsewhere, path_ + ".tmp");  // Planted.
    LogFile log;
    ASSERT_EQ(log.Open(path_, limit, 0), kLogReady);
    log.AppendToFile("+");
    EXPECT_EQ(ReadFile(path_), (Pattern(before) + "+").substr(cut)) << before;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path_))) << before;
    EXPECT_EQ(ReadFile(elsewhere), "precious") << before;
    fs::remove(path_ + ".tmp");
  }
  fs::resize_file(path_, 100 << 20);  // So far above that the copy would be costly.
  LogFile log;
  ASSERT_EQ(log.Open(path_, 100, 0), kLogReady);
  log.AppendToFile("+");
  EXPECT_EQ(fs::file_size(path_), 32 << 20);
}

TEST_F(LogFileTest, TwoOfOnePathLoseNoRecord) {
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
  const std::string text = ReadFile(path_);
  EXPECT_EQ(text.size(), 2 * kRecords * 21);
  for (std::size_t at = 0; at < text.size(); at += 21) {
    ASSERT_EQ(text.substr(at, 21), std::string(20, text[at]) + "\n");
  }
  for (const std::string& file : {path_, companion_}) {
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600)) << file;
  }
}

TEST_F(LogFileTest, LeavesNoLockWithAForkedChild) {
  static pid_t child = 0;
  LogFile log;
  ASSERT_EQ(log.Open(path_, 100, 32), kLogReady);
  // Comes within the write, under the lock. The child lives on.
  signal(SIGXFSZ, [](int) {
    if ((child = fork()) == 0) alarm(60), pause();
  });
  rlimit before{};
  const rlimit none{0, RLIM_INFINITY};
  ASSERT_EQ(prlimit(0, RLIMIT_FSIZE, &none, &before), 0);
  log.AppendToFile("lost");
  prlimit(0, RLIMIT_FSIZE, &before, nullptr);
  ASSERT_GT(child, 0);
  log.AppendToFile(Pattern(100));  // Only under the lock is the log cut.
  EXPECT_EQ(ReadFile(path_), Pattern(100).substr(50));
  log.Close();
  EXPECT_EQ(log.Open(path_, 100, 32), kLogReady);
  log.Write("kept");
  EXPECT_EQ(ReadFile(companion_), CompanionOf(4, "kept", 32));
  EXPECT_EQ(kill(child, SIGKILL), 0);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

std::string RecordOf(std::uint32_t number) {
  return "record " + std::to_string(number) + " " + std::string(number % 50, '.') + " end\n";
}

TEST_F(LogFileTest, LosesNoReturnedRecordWhenItIsKilled) {
  std::minstd_rand random(20260101);
  // How many calls have returned, for the child to count and the parent to read.
  auto& count = *static_cast<std::atomic<std::uint32_t>*>(
      mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (int round = 0; round < 300; ++round) {
    count = 0;
    fs::remove(path_), fs::remove(companion_);
    const pid_t child = fork();
    if (child == 0) {
      LogFile log;
      log.Open(path_, 0, 1024);
      while (true) log.Write(RecordOf(count)), ++count;
    }
    const std::uint32_t enough = 1 + random() % 100;
    while (count < enough) std::this_thread::yield();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    ASSERT_EQ(LogFile().Open(path_, 0, 1024), kLogReady);  // The next start.
    // What was on its way from the buffer to the log when the process died may be there twice.
    const std::string text = ReadFile(path_);
    for (std::size_t number = 0, at = 0; number < count; ++number) {
      at = text.find(RecordOf(number), at);
      ASSERT_NE(at, std::string::npos) << "record " << number << " of " << count;
    }
  }
}

}  // namespace
}  // namespace zo_base

// The log as a client finds it. Whatever stands where its files should be, the environment comes
// up, and nothing crashes, hangs or is written elsewhere.
namespace zo_tarvel {
namespace {

using namespace ::testing;

// The log below `root` of the default business, "IM_G1", whose digest is what md5sum says.
std::string LogPath(const std::string& root) {
  return root + "/tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/tarvel_comp.log";
}

// A whole life with log records that fill the buffer more than once.
void LiveOnce(const std::string& root) {
  _ZOTarvelEnvironmentSettings settings;
  std::strcpy(settings.log_path, root.c_str());
  settings.enable_httpdns = -1;  // A request that runs at the exit would leave its helper behind.
  ASSERT_EQ(StartTarvelEnvironment(settings), 1);
  ZO_LOG_AT(zo_base::kLogProtocol) << "a dump";
  for (int i = 0; i < 20; ++i) ZO_LOG << std::string(8000, 'x');
  ExitTarvelEnvironment(1);
}

TEST(LogEnvironmentTest, StartsWhateverStandsAtItsPaths) {
  const struct {
    std::string put;  // A command, in the log's directory.
    bool logs_all_the_same;
  } rows[] = {{"true", true},
              {"mkfifo $companion", false},
              {"ln -s elsewhere $companion", false},
              {"ln elsewhere $companion", true},
              {"truncate -s 1T $companion", true},
              {"mkdir $log", false},
              {"ln -s elsewhere $log", false},
              {"truncate -s 8M $log && mkdir $log.tmp", true}};
  const std::string precious(zo_base::LogFile::kDefaultBufferSize, 'p');
  for (const auto& row : rows) {
    const TempDirectory root;
    const std::string log = LogPath(root.path()), directory = fs::path(log).parent_path();
    fs::create_directories(directory);
    WriteFile(directory + "/elsewhere", precious);
    const std::string put = "cd " + directory + "; log=tarvel_comp.log; companion=$log.kvr_mmap; ";
    ASSERT_EQ(std::system((put + row.put).c_str()), 0) << row.put;
    LiveOnce(root.path());
    const std::string text = fs::is_regular_file(log) ? ReadFile(log) : "";
    EXPECT_EQ(text.find("xxx\n") != std::string::npos, row.logs_all_the_same) << row.put;
    EXPECT_EQ(text.ends_with("- exit -------------------\n"), row.logs_all_the_same) << row.put;
    EXPECT_EQ(text.find("a dump"), std::string::npos) << row.put;
    EXPECT_EQ(ReadFile(directory + "/elsewhere"), precious) << row.put;
    // Nor when there is no way to the directory at all.
    LiveOnce(directory + "/elsewhere");
    EXPECT_EQ(ReadFile(directory + "/elsewhere"), precious) << row.put;
  }
}

TEST(LogEnvironmentTest, WithoutRightsNothingIsLogged) {
  const TempDirectory root, other;
  ASSERT_EQ(chmod(root.path().c_str(), 0755) + chmod(other.path().c_str(), 0777), 0);
  const std::string log = LogPath(root.path());
  fs::create_directories(fs::path(log).parent_path());
  WriteFile(log, "");
  WriteFile(log + ".kvr_mmap", std::string(65536, '\0'));
  EXPECT_GOOD_CHILD([&] {
    if (setuid(65534) != 0) return kNotPermitted;  // Only root becomes nobody.
    LiveOnce(root.path());
    const rlimit none{};
    EXPECT_EQ(setrlimit(RLIMIT_MEMLOCK, &none), 0);
    zo_base::LogFile file;
    EXPECT_EQ(file.Open(other / "a.log", 0, 0), zo_base::kLogPagesNotLocked);
    EXPECT_EQ(file.Open(other / "a.log", 0, 0), zo_base::kLogNotMapped);
    file.Write("dropped");
    LiveOnce(other.path());
    return 0;
  });
  EXPECT_EQ(ReadFile(log) + ReadFile(other / "a.log"), "");
}

// Small file systems of its own, which the rest of the log doesn't fit into. One copies on write.
TEST(LogEnvironmentTest, AFullDiskDropsTextAndNothingElse) {
  const TempDirectory root, image;
  const std::string disk = image / "disk", log = LogPath(root.path());
  for (const std::string& make :
       {"mount -t tmpfs -o size=100k none " + root.path(),
        "truncate -s 32M " + disk + " && PATH=$PATH:/sbin mkfs.btrfs -qM " + disk +
            " >/dev/null 2>&1 && mount -o loop " + disk + " " + root.path()}) {
    EXPECT_GOOD_CHILD([&] {
      if (unshare(CLONE_NEWNS) != 0) return kNotPermitted;
      if (std::system(("mount --make-rprivate / && " + make).c_str()) != 0) return kNotPermitted;
      // Found as it is, this one is copied on write. Then without one, and with no room for one.
      fs::create_directories(fs::path(log).parent_path());
      WriteFile(log + ".kvr_mmap", std::string(65536, '\0'));
      for (int life = 0; life < 3; ++life) {
        LiveOnce(root.path());
        if (life == 1) fs::remove(log + ".kvr_mmap");
        WriteFile(root / "filler", std::string(40'000'000, 'f'));
      }
      return 0;
    });
  }
}

// In a child, since a custom log function stays for the life of the process.
TEST(CustomLogTest, TakesEveryRecordInItsFormat) {
  const TempDirectory directory;
  EXPECT_GOOD_CHILD([&] {
    static Mailbox<std::string> records;
    _ZOTarvelEnvironmentSettings settings = TestSettings();
    std::strcpy(settings.log_path, directory.path().c_str());
    settings.custom_log = [](const char* record) { records.Put(record); };
    StartTarvelEnvironment(settings);
    for (int level = 0; level <= 6; ++level) ZO_LOG_AT(level) << "text" << level;
    const auto thread = std::make_shared<zo_base::BaseThread>("a thread", [] { ZO_LOG << "text"; });
    thread->Start();
    thread->Stop();
    ExitTarvelEnvironment(1);
    const auto lines = records.TakeAll();
    EXPECT_THAT(lines.front(), EndsWith("[LV_APP][ZO_TARVEL][unknown] \r\n"
                                        "------------------- start -------------------\n"));
    EXPECT_THAT(lines.back(), EndsWith(" exit -------------------\n"));
    EXPECT_THAT(lines, Contains(EndsWith("[LV_APP][ZO_TARVEL][a thread] text\n")));
    const std::string begin = "[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+[.][0-9]+ " +
                              std::to_string(getpid()) + "-" + std::to_string(pthread_self());
    const std::string levels[] = {"KER", "ASS", "ERR", "WAR", "INT", "APP", "PRO"};
    for (std::size_t level = 0; level <= 6; ++level) {
      const std::string place = level <= 3 ? "\n @.location. log_test:[0-9]+\n\n" : "\n";
      EXPECT_THAT(lines, Contains(MatchesRegex(begin + " .LV_" + levels[level] +
                                               "..ZO_TARVEL..unknown. text" +
                                               std::to_string(level) + place)));
    }
    settings.custom_log = nullptr;
    StartTarvelEnvironment(settings);
    ExitTarvelEnvironment(1);
    EXPECT_THAT(records.TakeAll(), Contains(HasSubstr("zo_tarvel config:\r\n")));
    return 0;
  });
  // The file of the second life is opened, and nothing is ever written to it.
  EXPECT_FALSE(fs::exists(LogPath(directory.path())));
}

}  // namespace
}  // namespace zo_tarvel
