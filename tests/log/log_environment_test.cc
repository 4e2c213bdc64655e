// The log as a client finds it. Whatever stands where its files should be, the environment comes
// up, and nothing crashes, hangs or is written elsewhere.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/base_thread.h"
#include "base/log.h"
#include "base/log_file.h"
#include "tests/support/child_process.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

namespace fs = std::filesystem;
using namespace test_support;
using namespace ::testing;

// The log below `root` of the default business, "IM_G1", whose digest is what md5sum says.
std::string LogPath(const std::string& root) {
  return root + "/tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/tarvel_comp.log";
}

// A whole life with log records that fill the buffer more than once.
void LiveOnce(const std::string& root) {
  _ZOTarvelEnvironmentSettings settings;
  std::strcpy(settings.log_path, root.c_str());
  ASSERT_EQ(StartTarvelEnvironment(settings), 1);
  ZO_LOG_AT(zo_base::kLogProtocol) << "a dump";
  for (int i = 0; i < 20; ++i) ZO_LOG << std::string(8000, 'x');
  ExitTarvelEnvironment(1);
}

TEST(LogEnvironmentTest, AnObstacleInTheWayOfAFileLeavesTheEnvironmentUp) {
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

TEST(LogEnvironmentTest, WithoutRightsToTheFilesOrToLockedPagesNothingIsLogged) {
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
TEST(CustomLogTest, TakesAllRecordsInOneFormatAndStaysAcrossAnExit) {
  const TempDirectory directory;
  EXPECT_GOOD_CHILD([&] {
    static std::mutex lock;
    static std::vector<std::string> lines;
    _ZOTarvelEnvironmentSettings settings = TestSettings();
    std::strcpy(settings.log_path, directory.path().c_str());
    settings.custom_log = [](const char* line) {
      const std::lock_guard guard(lock);
      lines.emplace_back(line);
    };
    StartTarvelEnvironment(settings);
    for (int level = 0; level <= 6; ++level) ZO_LOG_AT(level) << "text" << level;
    const auto thread = std::make_shared<zo_base::BaseThread>("a thread", [] { ZO_LOG << "text"; });
    thread->Start();
    thread->Stop();
    ExitTarvelEnvironment(1);
    EXPECT_THAT(lines.front(), EndsWith("[LV_APP][ZO_TARVEL][unknown] \r\n"
                                        "------------------- start -------------------\n"));
    EXPECT_THAT(lines.back(), EndsWith(" exit -------------------\n"));
    EXPECT_THAT(lines, Contains(EndsWith("[LV_APP][ZO_TARVEL][a thread] text\n")));
    const std::string begin = "[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+[.][0-9]+ " +
                              std::to_string(getpid()) + "-" + std::to_string(pthread_self());
    const std::string levels[] = {"KER", "ASS", "ERR", "WAR", "INT", "APP", "PRO"};
    for (std::size_t level = 0; level <= 6; ++level) {
      const std::string place =
          level <= 3 ? "\n @.location. log_environment_test:[0-9]+\n\n" : "\n";
      EXPECT_THAT(lines, Contains(MatchesRegex(begin + " .LV_" + levels[level] +
                                               "..ZO_TARVEL..unknown. text" +
                                               std::to_string(level) + place)));
    }
    lines.clear();
    settings.custom_log = nullptr;
    StartTarvelEnvironment(settings);
    ExitTarvelEnvironment(1);
    EXPECT_THAT(lines, Contains(HasSubstr("zo_tarvel config:\r\n")));
    return 0;
  });
  // The file of the second life is opened, and nothing is ever written to it.
  EXPECT_FALSE(fs::exists(LogPath(directory.path())));
}

}  // namespace
}  // namespace zo_tarvel
