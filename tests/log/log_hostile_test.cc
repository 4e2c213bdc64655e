// Whatever stands where the log's files should be, the environment comes up, and nothing crashes,
// hangs or is written elsewhere.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/log_file.h"
#include "tests/support/temp_directory.h"

#define IM_G1_DIGEST "d6f07bc61ae1384e48a8edaab463328b"  // As md5sum has it.

namespace zo_tarvel {
namespace {

namespace fs = std::filesystem;
using test_support::ReadFile;
using test_support::TempDirectory;
using test_support::WriteFile;

// The directory of the default business below `root`.
std::string LogDirectory(const std::string& root) { return root + "/tarvel_comp/" IM_G1_DIGEST; }

_ZOTarvelEnvironmentSettings SettingsFor(const std::string& root) {
  _ZOTarvelEnvironmentSettings settings;
  std::strcpy(settings.log_path, root.c_str());
  return settings;
}

// A whole life with log records that fill the buffer more than once.
void LiveOnce(const std::string& root) {
  ASSERT_EQ(StartTarvelEnvironment(SettingsFor(root)), 1);
  for (int i = 0; i < 20; ++i) ZO_LOG << std::string(8000, 'x');
  ExitTarvelEnvironment(1);
}

// Runs `body` in a child process. Answers its exit code, or -1 when it died or hung.
int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct ObstacleCase {
  const char* name;
  void (*put)(const std::string& log, const std::string& companion);
  bool logs_all_the_same;
};
class LogObstacleTest : public ::testing::TestWithParam<ObstacleCase> {};

TEST_P(LogObstacleTest, LeavesTheEnvironmentUp) {
  const TempDirectory root;
  fs::create_directories(LogDirectory(root.path()));
  const std::string log = LogDirectory(root.path()) + "/tarvel_comp.log";
  GetParam().put(log, log + ".kvr_mmap");
  LiveOnce(root.path());
  const bool logged = fs::is_regular_file(log) && ReadFile(log).find("xxx") != std::string::npos;
  EXPECT_EQ(logged, GetParam().logs_all_the_same);
}

INSTANTIATE_TEST_SUITE_P(Obstacles, LogObstacleTest,
                         ::testing::ValuesIn(std::vector<ObstacleCase>{
                             {"CompanionIsADirectory",
                              [](const std::string&, const std::string& companion) {
                                fs::create_directory(companion);
                              },
                              false},
                             {"CompanionIsAFifo",
                              [](const std::string&, const std::string& companion) {
                                mkfifo(companion.c_str(), 0600);
                              },
                              false},
                             {"CompanionIsALinkElsewhere",
                              [](const std::string& log, const std::string& companion) {
                                WriteFile(log + ".elsewhere", "precious");
                                fs::create_symlink(log + ".elsewhere", companion);
                              },
                              false},
                             {"CompanionIsHuge",
                              [](const std::string&, const std::string& companion) {
                                WriteFile(companion, "");
                                fs::resize_file(companion, std::uintmax_t{1} << 40);
                              },
                              true},
                             {"CompanionIsNoise",
                              [](const std::string&, const std::string& companion) {
                                WriteFile(companion, std::string(65536, '\xff'));
                              },
                              true},
                             {"LogIsADirectory",
                              [](const std::string& log,
                                 const std::string&) { fs::create_directory(log); },
                              false},
                             {"LogIsALinkElsewhere",
                              [](const std::string& log, const std::string&) {
                                WriteFile(log + ".elsewhere", "");
                                fs::create_symlink(log + ".elsewhere", log);
                              },
                              false},
                             {"LogIsAFifo",
                              [](const std::string& log,
                                 const std::string&) { mkfifo(log.c_str(), 0600); },
                              false},
                             {"TemporaryFileIsADirectory",
                              [](const std::string& log, const std::string&) {
                                WriteFile(log,
                                          std::string(zo_base::LogFile::kDefaultMaxFileSize, 'y'));
                                fs::create_directory(log + ".tmp");
                              },
                              true}}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(LogHostileTest, APathThatCannotBeMadeLeavesTheEnvironmentUp) {
  const TempDirectory root;
  WriteFile(root / "file", "precious");
  LiveOnce(root / "file");
  LiveOnce("/proc/no such place");
  EXPECT_EQ(ReadFile(root / "file"), "precious");
}

TEST(LogHostileTest, AUserWithoutRightsToTheFilesLogsNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can become another user or mount.";
  const TempDirectory root;
  ASSERT_EQ(chmod(root.path().c_str(), 0755), 0);
  const std::string directory = LogDirectory(root.path());
  fs::create_directories(directory);
  WriteFile(directory + "/tarvel_comp.log", "");
  WriteFile(directory + "/tarvel_comp.log.kvr_mmap", std::string(65536, '\0'));
  EXPECT_EQ(InChild([&] {
              if (setuid(65534) != 0) return 2;
              LiveOnce(root.path());
              return 0;
            }),
            0);
  EXPECT_EQ(ReadFile(directory + "/tarvel_comp.log"), "");
}

// In a directory of somebody else a companion of the wrong length cannot be replaced.
TEST(LogHostileTest, ACompanionThatCannotBeReplacedIsUsedAsItIsOrNotAtAll) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can become another user or mount.";
  const TempDirectory root;
  ASSERT_EQ(chmod(root.path().c_str(), 0755), 0);
  for (const auto& [length, result] :
       {std::pair{3, zo_base::kLogNoCompanion}, std::pair{4096, zo_base::kLogReady}}) {
    const std::string companion = root / "a.log.kvr_mmap";
    WriteFile(companion, std::string(static_cast<std::size_t>(length), '\0'));
    ASSERT_EQ(chmod(companion.c_str(), 0666), 0);
    const int opened = InChild([&] {
      if (setuid(65534) != 0) return 9;
      zo_base::LogFile log;
      const std::int32_t answer = log.Open(root / "a.log", 0, 0);
      for (int i = 0; i < 100; ++i) log.Write(std::string(1000, 'x'));
      return answer;
    });
    EXPECT_EQ(opened, result) << length;
    EXPECT_EQ(ReadFile(companion).size(), static_cast<std::size_t>(length));
  }
}

TEST(LogHostileTest, DropsRecordsWhosePagesCannotBeLocked) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can become another user or mount.";
  const TempDirectory root;
  ASSERT_EQ(chmod(root.path().c_str(), 0777), 0);
  EXPECT_EQ(InChild([&] {
              const rlimit none{};
              if (setrlimit(RLIMIT_MEMLOCK, &none) != 0 || setuid(65534) != 0) return 2;
              zo_base::LogFile log;
              if (log.Open(root / "a.log", 0, 0) != zo_base::kLogPagesNotLocked) return 3;
              if (log.Open(root / "a.log", 0, 0) != zo_base::kLogNotMapped) return 4;
              log.Write("dropped");
              log.Close();
              LiveOnce(root.path());
              return 0;
            }),
            0);
  EXPECT_EQ(ReadFile(root / "a.log"), "");
}

// A small file system of its own, which the rest of the log doesn't fit into.
TEST(LogHostileTest, AFullDiskDropsTextAndNothingElse) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can become another user or mount.";
  const TempDirectory root;
  EXPECT_EQ(InChild([&] {
              if (unshare(CLONE_NEWNS) != 0) return 2;
              mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
              if (mount("small", root.path().c_str(), "tmpfs", 0, "size=100k") != 0) return 3;
              for (int life = 0; life < 3; ++life) LiveOnce(root.path());
              WriteFile(root / "filler", std::string(200'000, 'f'));
              fs::remove(LogDirectory(root.path()) + "/tarvel_comp.log.kvr_mmap");
              WriteFile(root / "filler", std::string(200'000, 'f'));
              for (int life = 0; life < 3; ++life) LiveOnce(root.path());
              return 0;
            }),
            0);
}

}  // namespace
}  // namespace zo_tarvel
