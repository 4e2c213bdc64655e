// The log as a client finds it. Whatever stands where its files should be, the environment comes
// up, and nothing crashes, hangs or is written elsewhere.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include "base/log.h"
#include "base/log_file.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_directory.h"

#define IM_G1_DIGEST "d6f07bc61ae1384e48a8edaab463328b"  // As md5sum has it.

namespace zo_tarvel {
namespace {

namespace fs = std::filesystem;
using namespace test_support;

// Of a companion's length.
const std::string kPrecious(zo_base::LogFile::kDefaultBufferSize, 'p');

// The directory of the default business below `root`.
std::string LogDirectory(const std::string& root) { return root + "/tarvel_comp/" IM_G1_DIGEST; }

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
    const char* name;
    std::function<void(const std::string& log, const std::string& companion)> put;
    bool logs_all_the_same;
  } rows[] = {{"nothing", [](auto&, auto&) {}, true},
              {"companion is a FIFO", [](auto&, auto& file) { mkfifo(file.c_str(), 0600); }, false},
              {"companion is a link elsewhere",
               [](auto& log, auto& file) { fs::create_symlink(log + ".elsewhere", file); }, false},
              {"companion is another file's second name",
               [](auto& log, auto& file) { fs::create_hard_link(log + ".elsewhere", file); }, true},
              {"companion is huge",
               [](auto&, auto& file) {
                 WriteFile(file, ""), fs::resize_file(file, std::uintmax_t{1} << 40);
               },
               true},
              {"log is a directory", [](auto& log, auto&) { fs::create_directory(log); }, false},
              {"log is a link elsewhere",
               [](auto& log, auto&) { fs::create_symlink(log + ".elsewhere", log); }, false},
              {"temporary file is a directory",
               [](auto& log, auto&) {
                 WriteFile(log, std::string(zo_base::LogFile::kDefaultMaxFileSize, 'y'));
                 fs::create_directory(log + ".tmp");
               },
               true}};
  for (const auto& row : rows) {
    const TempDirectory root;
    fs::create_directories(LogDirectory(root.path()));
    const std::string log = LogDirectory(root.path()) + "/tarvel_comp.log";
    WriteFile(log + ".elsewhere", kPrecious);
    row.put(log, log + ".kvr_mmap");
    LiveOnce(root.path());
    const std::string text = fs::is_regular_file(log) ? ReadFile(log) : "";
    EXPECT_EQ(text.find("xxx\n") != std::string::npos, row.logs_all_the_same) << row.name;
    EXPECT_EQ(text.ends_with("- exit -------------------\n"), row.logs_all_the_same) << row.name;
    EXPECT_EQ(text.find("a dump"), std::string::npos) << row.name;
    EXPECT_EQ(ReadFile(log + ".elsewhere"), kPrecious) << row.name;
    // Nor when there is no way to the directory at all.
    LiveOnce(log + ".elsewhere");
    EXPECT_EQ(ReadFile(log + ".elsewhere"), kPrecious) << row.name;
  }
}

TEST(LogEnvironmentTest, AUserWithoutRightsToTheFilesLogsNothing) {
  const TempDirectory root;
  ASSERT_EQ(chmod(root.path().c_str(), 0755), 0);
  const std::string log = LogDirectory(root.path()) + "/tarvel_comp.log";
  fs::create_directories(LogDirectory(root.path()));
  WriteFile(log, "");
  WriteFile(log + ".kvr_mmap", std::string(65536, '\0'));
  EXPECT_GOOD_CHILD([&] {
    if (setuid(65534) != 0) return kNotPermitted;  // Only root becomes nobody.
    LiveOnce(root.path());
    return 0;
  });
  EXPECT_EQ(ReadFile(log), "");
}

TEST(LogEnvironmentTest, DropsRecordsWhosePagesCannotBeLocked) {
  const TempDirectory root;
  ASSERT_EQ(chmod(root.path().c_str(), 0777), 0);
  EXPECT_GOOD_CHILD([&] {
    const rlimit none{};
    if (setrlimit(RLIMIT_MEMLOCK, &none) != 0 || setuid(65534) != 0) return kNotPermitted;
    zo_base::LogFile log;
    EXPECT_EQ(log.Open(root / "a.log", 0, 0), zo_base::kLogPagesNotLocked);
    EXPECT_EQ(log.Open(root / "a.log", 0, 0), zo_base::kLogNotMapped);
    log.Write("dropped");
    LiveOnce(root.path());
    return 0;
  });
  EXPECT_EQ(ReadFile(root / "a.log"), "");
}

// Small file systems of its own, which the rest of the log doesn't fit into. One copies on write.
TEST(LogEnvironmentTest, AFullDiskDropsTextAndNothingElse) {
  const TempDirectory root, image;
  const std::string disk = image / "disk";
  for (const std::string& make :
       {"mount -t tmpfs -o size=100k none " + root.path(),
        "truncate -s 32M " + disk + " && PATH=$PATH:/sbin mkfs.btrfs -qM " + disk +
            " >/dev/null 2>&1 && mount -o loop " + disk + " " + root.path()}) {
    EXPECT_GOOD_CHILD([&] {
      if (unshare(CLONE_NEWNS) != 0) return kNotPermitted;
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
      if (std::system(make.c_str()) != 0) return kNotPermitted;
      for (int life = 0; life < 3; ++life) {
        LiveOnce(root.path());
        // Then also without a companion, and with no room for one.
        if (life == 1) fs::remove(LogDirectory(root.path()) + "/tarvel_comp.log.kvr_mmap");
        WriteFile(root / "filler", std::string(40'000'000, 'f'));
      }
      return 0;
    });
  }
}

}  // namespace
}  // namespace zo_tarvel
