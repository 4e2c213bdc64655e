// All ways in which a client's process, or the library's stay in it, comes to an end.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/support/program.h"
#include "tests/support/temp_directory.h"

namespace {

using test_support::Program;

// The business is the default one; its digest is that of md5sum.
constexpr char kLog[] = "/tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/tarvel_comp.log";

// Where children log.
const std::string& LogPath() {
  static const test_support::TempDirectory directory;
  return directory.path();
}

// What a child has written until its end, which must be a regular one. A hung one is killed after
// 30 s.
std::string OutputOf(const std::string& command) {
  Program child(
      {"/bin/sh", "-c", "TEST_LOG_PATH=" + LogPath() + " exec timeout -s KILL 30 " + command});
  EXPECT_EQ(child.Wait(), 0) << child.output();
  return child.output();
}

constexpr char kRegular[] = "do stop by goalkeeper false";
constexpr char kByHandler[] = "do stop by goalkeeper true";

TEST(ProcessEndTest, StopsTheEnvironmentAndEndsRegularly) {
  const struct {
    const char* ending;
    const char* steps;
    const char* logged;  // The last word of the goalkeeper; null where it may come too late.
  } rows[] = {
    {"regular exit", "started\nthread ended\nclient returns\n", kRegular},
    {"return", "started\nclient returns\nthread ended\n", kByHandler},
    {"two lives and return", "started\nthread ended\nstarted\nclient returns\nthread ended\n",
     kByHandler},
    {"two starts and return", "started\nclient returns\nthread ended\n", kByHandler},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The sanitizers bear no work in a child of several threads' process.
    {"children forked off while it logs", "started\nclient returns\nthread ended\n", kByHandler},
    {"children forked off while exports are called", "started\nthread ended\nclient returns\n",
     nullptr},
#endif
    {"exit in the log function", "started\nthread ended\n", nullptr},
    {"exit on another thread", "started\nthread ended\n", kByHandler},
    {"exit on another thread while exports are called", "started\nthread ended\n", nullptr},
    // The thread that calls exit() is the service's own and cannot be waited for.
    {"exit in a callback", "started\n", kByHandler},
    {"exit in a callback that an exit waits for", "started\n", nullptr},
    {"environment exit in a callback", "started\nenvironment down\nclient returns\n", kRegular},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ending);
    std::filesystem::remove(LogPath() + kLog);
    EXPECT_EQ(OutputOf(CLIENT " '" + std::string(row.ending) + "'"), row.steps);
    if (row.logged == nullptr) continue;
    const std::string log = test_support::ReadFile(LogPath() + kLog);
    EXPECT_THAT(log, testing::HasSubstr(row.logged));
    EXPECT_THAT(log, testing::EndsWith("------------------- exit -------------------\n"));
  }
}

TEST(UnloadTest, StopsAnEnvironmentThatIsStillUpAndLeavesNothingBehindHoweverOftenItComes) {
  const std::string round = "started\nclient returns\nthread ended\n";
  EXPECT_EQ(OutputOf(LOADER " '" MODULE "' 2 return"), round + round + "unloaded\n");
  // It waits for a thread that ended its own environment.
  EXPECT_THAT(OutputOf(LOADER " '" MODULE "' 20 'environment exit in a callback'"),
              testing::EndsWith("unloaded\n"));
  EXPECT_EQ(OutputOf(LOADER " '" LIBRARY "' 20"), "unloaded\n");
}

}  // namespace
