#include "base/log/log_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <latch>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "base/log/log.h"
#include "base/process/open_file.h"
#include "base/thread/thread_info.h"
#include "tests/support/child_process.h"
#include "tests/support/mailbox.h"
#include "tests/support/test_settings.h"

namespace fs = std::filesystem;
using namespace test_support;
using namespace testing;

namespace zo_base {
namespace {

constexpr std::uint32_t kSize = 32;  // Of a companion.

// A companion of `size` bytes whose count says `used`, as the machine writes it.
std::string CompanionOf(std::int32_t used, const std::string& text, std::size_t size = kSize) {
  std::string content(reinterpret_cast<const char*>(&used), sizeof used);
  content += text;
  content.resize(size, '\0');
  return content;
}

const std::string kFront(50, 'f'), kRear(50, 'r');  // Of a log.

class LogFileTest : public Test {
 protected:
  using Texts = std::pair<std::string, std::string>;  // Of the log and of its companion.

  Texts Found() const { return {ReadFile(path_), ReadFile(companion_)}; }

  const TempDirectory directory_;
  const std::string path_ = directory_ / "test.log";
  const std::string companion_ = path_ + ".kvr_mmap";
};

TEST_F(LogFileTest, RecoversTheTextOfAFoundCompanion) {
  const std::string full(kSize - 4, 't');
  const struct {
    std::string name, found, recovered;
    std::int32_t result;
  } rows[] = {
      {"of length zero", "", "", kLogReady},
      {"filled to the last byte", CompanionOf(28, full), full, kLogReady},
      {"count one too high", CompanionOf(29, full), "", kLogDamaged},
      {"count negative", CompanionOf(-1, "text"), "", kLogDamaged},
      {"shorter", CompanionOf(4, "text", 20), "text", kLogReady},
      {"shorter with count too high", CompanionOf(17, "text", 20), "", kLogReady},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    WriteFile(companion_, row.found);
    WriteFile(path_, "");
    LogFile log;
    EXPECT_EQ(log.Open(path_, 0, kSize), row.result);
    EXPECT_TRUE(log.IsReady());
    const std::string text =
        "\r\n -----------------------load from mmap file begin-----------------------\r\n" +
        row.recovered +
        "\r\n -----------------------load from mmap file end-----------------------\r\n";
    EXPECT_EQ(Found(), Texts(row.recovered.empty() ? "" : text, CompanionOf(0, "")));
  }
}

TEST_F(LogFileTest, KeepsRecordsUntilOneDoesNotFit) {
  LogFile log;
  ASSERT_EQ(log.Open(path_, 0, kSize), kLogReady);
  log.Write("0123456789");
  log.Write("abcdefghijklmnopq");
  EXPECT_EQ(Found(), Texts("", CompanionOf(27, "0123456789abcdefghijklmnopq")));
  log.Write("r");  // 27 + 1 + 4 is the size: one that would fill it exactly.
  EXPECT_EQ(Found(), Texts("0123456789abcdefghijklmnopqr", CompanionOf(0, "")));
  log.Write("s");
  log.Write(std::string(70000, 't'));
  EXPECT_EQ(Found(),
            Texts("0123456789abcdefghijklmnopqrs" + std::string(70000, 't'), CompanionOf(0, "")));
}

TEST_F(LogFileTest, GoesOnAfterItsCompanionWasCutShort) {
  const auto cut = [this](off_t length) { return truncate(companion_.c_str(), length) == 0; };
  LogFileBuffer buffer([&](const std::string&) { return cut(0); });
  ASSERT_EQ(buffer.Init(companion_, kSize), kLogReady);
  for (const off_t length : {0U, kSize - 1}) {  // To nothing, and inside its last page.
    buffer.Append("lost");
    ASSERT_TRUE(cut(length));
    buffer.Append("found");
    EXPECT_EQ(ReadFile(companion_), CompanionOf(5, "found"));
  }
  buffer.Flush();
  EXPECT_EQ(ReadFile(companion_), CompanionOf(0, ""));
}

TEST_F(LogFileTest, SharesItsCompanionWithNobody) {
  LogFile log, second;
  ASSERT_EQ(log.Open(path_, 0, kSize), kLogReady);
  log.Write("parent ");
  EXPECT_GOOD_CHILD([&] { return log.Write("child"), log.Close(), 0; });
  EXPECT_EQ(second.Open(path_, 0, 4096), kLogReady);  // Another length is no reason to touch it.
  second.Write("second ");
  EXPECT_EQ(Found(), Texts("", CompanionOf(7, "parent ")));
  second.Close();
  log.Write("goes on");
  log.Close();
  EXPECT_EQ(ReadFile(path_), "second parent goes on");
}

TEST_F(LogFileTest, CutsHalfTheLimitOffAFullLog) {
  const std::string elsewhere = path_ + ".elsewhere";
  WriteFile(elsewhere, "precious");
  const struct {
    std::string before;
    std::uint32_t limit;
    std::string after;  // One more byte was appended.
  } rows[] = {{kFront + kRear.substr(2), 100, kFront + kRear.substr(2) + "+"},
              {kFront + kRear.substr(1), 100, kRear.substr(1) + "+"},
              {kFront + kRear, 101, kRear + "+"}};
  for (const auto& [before, limit, after] : rows) {
    WriteFile(path_, before);
    fs::create_symlink(elsewhere, path_ + ".tmp");  // Planted.
    LogFile log;
    ASSERT_EQ(log.Open(path_, limit, 0), kLogReady);
    log.AppendToFile("+");
    EXPECT_EQ(ReadFile(path_), after);
    EXPECT_EQ(ReadFile(elsewhere), "precious");
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
  const auto write = [&](const char* record) {
    LogFile log;
    EXPECT_EQ(log.Open(path_, 0, 512), kLogReady);
    both_open.arrive_and_wait();
    for (int i = 0; i < kRecords; ++i) log.Write(record);
  };
  std::thread other([&] { write("a record of the other one\n"); });
  write("a record of the one\n");
  other.join();
  std::map<std::string, int> records;
  std::ifstream log(path_);
  for (std::string line; std::getline(log, line);) ++records[line];
  EXPECT_THAT(records, ElementsAre(Pair("a record of the one", kRecords),
                                   Pair("a record of the other one", kRecords)));
  for (const std::string& file : {path_, companion_}) {
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600)) << file;
  }
}

TEST_F(LogFileTest, LeavesNoLockWithAForkedChild) {
  LogFile log;
  ASSERT_EQ(log.Open(path_, 1 << 30, kSize), kLogReady);
  log.AppendToFile("first");
  std::atomic<int> writes{0};
  std::atomic<pid_t> child{0};
  std::thread forker([&] {
    const OpenFile probe(path_, O_RDONLY);
    const auto is_locked = [&] { return flock(probe.fd(), LOCK_EX | LOCK_NB) != 0; };
    while (child == 0) {  // Until a child has come within one write, under the lock. It lives on.
      while (!is_locked()) flock(probe.fd(), LOCK_UN);
      const int write = writes;
      const pid_t forked = fork();
      if (forked == 0) alarm(60), pause();
      if (is_locked() && write == writes) {
        child = forked;
      } else {
        kill(forked, SIGKILL);
        waitpid(forked, nullptr, 0);
      }
    }
  });
  for (const std::string text(8 << 20, 'x'); child == 0; ++writes) log.AppendToFile(text);
  forker.join();
  std::filesystem::resize_file(path_, 0);
  ASSERT_EQ(log.Open(path_, 100, kSize), kLogReady);
  log.AppendToFile(kFront + kRear);  // Only under the lock is the log cut.
  log.Close();
  EXPECT_EQ(log.Open(path_, 100, kSize), kLogReady);
  log.Write("kept");
  EXPECT_EQ(Found(), Texts(kRear, CompanionOf(4, "kept")));
  kill(child, SIGKILL);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_F(LogFileTest, DropsRecordsWithoutLockedMemory) {
  fs::permissions(directory_.path(), fs::perms::all);
  EXPECT_GOOD_CHILD([this] {
    const rlimit none{};
    if (setuid(65534) != 0 || setrlimit(RLIMIT_MEMLOCK, &none) != 0) return kNotPermitted;
    LogFile log;
    EXPECT_EQ(log.Open(path_, 0, kSize), kLogPagesNotLocked);
    EXPECT_EQ(log.Open(path_, 0, kSize), kLogNotMapped);
    log.Write("dropped");
    return 0;
  });
  EXPECT_EQ(Found(), Texts("", CompanionOf(0, "")));
}

std::string RecordOf(std::uint32_t number) {
  return "record " + std::to_string(number) + " " + std::string(number % 50, '.') + " end\n";
}

TEST_F(LogFileTest, LosesNoReturnedRecordWhenItIsKilled) {
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
    while (count <= static_cast<std::uint32_t>(round) % 100) std::this_thread::yield();
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

// The log below `root` of the default business, "IM_G1", whose digest is what md5sum says.
std::string LogPath(const std::string& root) {
  return root + "/tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/tarvel_comp.log";
}

// A whole life with log records that fill the buffer more than once.
void LiveOnce(const std::string& root) {
  auto settings = TestSettings();
  std::strcpy(settings.log_path, root.c_str());
  ASSERT_EQ(StartTarvelEnvironment(settings), 1);
  ZO_LOG_AT(zo_base::kLogProtocol) << "a dump";
  for (int i = 0; i < 20; ++i) ZO_LOG << std::string(8000, 'x');
  ExitTarvelEnvironment(1);
}

TEST(LogEnvironmentTest, StartsWhateverItFinds) {
  // Small file systems, which the rest of the log doesn't fit into. One copies on write.
  const std::string tmpfs = "mount -t tmpfs -o size=100k none .";
  const std::string btrfs =
      "truncate -s 32M disk && PATH=$PATH:/sbin mkfs.btrfs -qM disk >/dev/null 2>&1 && "
      "mount -o loop disk .";
  const std::string put_companion = " && cd $PWD && head -c 65536 /dev/zero >$companion";
  const std::string fill = "head -c 40M /dev/zero >>filler 2>&1; true";
  enum Log { kHasAll, kHasNothing, kHasSome };
  const struct {
    std::vector<std::string> befores;  // A command before each life, in the log's directory.
    Log log;
  } rows[] = {{{"true"}, kHasAll},
              {{"mkfifo $companion"}, kHasNothing},
              {{"ln -s ../../elsewhere $companion"}, kHasNothing},
              {{"ln ../../elsewhere $companion"}, kHasAll},
              {{"truncate -s 1T $companion"}, kHasAll},
              {{"mkdir $log"}, kHasNothing},
              {{"ln -s ../../elsewhere $log"}, kHasNothing},
              {{"truncate -s 8M $log && mkdir $log.tmp"}, kHasAll},
              {{"rmdir $PWD && ln -s ../elsewhere $PWD"}, kHasNothing},
              {{tmpfs + put_companion, fill, "rm $companion; " + fill}, kHasSome},
              {{btrfs + put_companion, fill, "rm $companion; " + fill}, kHasSome}};
  const std::string precious(zo_base::LogFile::kDefaultBufferSize, 'p');
  for (const auto& row : rows) {
    SCOPED_TRACE(row.befores[0]);
    const TempDirectory root;
    const std::string log = LogPath(root.path()), directory = fs::path(log).parent_path();
    fs::create_directories(directory);
    WriteFile(root / "elsewhere", precious);
    EXPECT_GOOD_CHILD([&] {
      const bool mounts = row.log == kHasSome;
      if (mounts && unshare(CLONE_NEWNS) != 0) return kNotPermitted;
      if (mounts && std::system("mount --make-rprivate /") != 0) return kNotPermitted;
      for (const std::string& before : row.befores) {
        const std::string command =
            "cd " + directory + "; log=tarvel_comp.log; " + "companion=$log.kvr_mmap; " + before;
        if (std::system(command.c_str()) != 0) return mounts ? kNotPermitted : 1;
        LiveOnce(root.path());
      }
      return 0;
    });
    EXPECT_EQ(ReadFile(root / "elsewhere"), precious);
    if (row.log == kHasSome) continue;
    const std::string text = fs::is_regular_file(fs::symlink_status(log)) ? ReadFile(log) : "";
    EXPECT_EQ(text.find("xxx\n") != std::string::npos, row.log == kHasAll);
    EXPECT_EQ(text.ends_with("- exit -------------------\n"), row.log == kHasAll);
    EXPECT_EQ(text.find("a dump"), std::string::npos);
  }
}

// In a child, since a custom log function stays for the life of the process.
TEST(CustomLogTest, TakesEveryRecordInItsFormat) {
  EXPECT_GOOD_CHILD([] {
    static Mailbox<std::string> records;
    auto settings = TestSettings();
    settings.custom_log = [](const char* record) { records.Put(record); };
    StartTarvelEnvironment(settings);
    zo_base::ThreadInfo info;
    info.name = "thread";
    zo_base::SetCurrentThreadInfo(info);
    for (int level = 0; level <= 6; ++level) ZO_LOG_AT(level) << "text" << level;
    zo_base::ClearCurrentThreadInfo();
    ExitTarvelEnvironment(1);
    const auto lines = records.TakeAll();
    EXPECT_THAT(lines.front(), EndsWith("[LV_APP][ZO_TARVEL][unknown] \r\n"
                                        "------------------- start -------------------\n"));
    EXPECT_THAT(lines.back(), EndsWith(" exit -------------------\n"));
    const std::string begin = "[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+[.][0-9]+ " +
                              std::to_string(getpid()) + "-" + std::to_string(pthread_self());
    for (const char* const rest :
         {"KER..ZO_TARVEL..thread. text0\n @.location. log_test:[0-9]+\n\n",
          "WAR..ZO_TARVEL..thread. text3\n @.location. log_test:[0-9]+\n\n",
          "INT..ZO_TARVEL..thread. text4\n", "PRO..ZO_TARVEL..thread. text6\n"}) {
      EXPECT_THAT(lines, Contains(MatchesRegex(begin + " .LV_" + rest)));
    }
    settings.custom_log = nullptr;
    StartTarvelEnvironment(settings);
    ExitTarvelEnvironment(1);
    EXPECT_THAT(records.TakeAll(), Contains(HasSubstr("zo_tarvel config:\r\n")));
    // The file of the second life is opened, and nothing is ever written to it.
    EXPECT_FALSE(fs::exists(LogPath(settings.appdata_path)));
    return 0;
  });
}

}  // namespace
}  // namespace zo_tarvel
