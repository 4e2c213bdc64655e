// Every way in which a client's process ends or unloads the library.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/support/program.h"
#include "tests/support/temp_directory.h"

namespace {

using test_support::Program;

class ProcessEndTest : public testing::Test {
 protected:
  // What a child has written until its end, which must be a regular one. A hung one is killed after
  // 30 s.
  std::string OutputOf(const std::string& command) const {
    Program child({"/bin/sh", "-c",
                   "TEST_LOG_PATH=" + directory_.path() + " exec timeout -s KILL 30 " + command});
    EXPECT_EQ(child.Wait(), 0) << child.output();
    return child.output();
  }

  const test_support::TempDirectory directory_;
  // The business is the default one; its digest is that of md5sum.
  const std::string log_ =
      directory_.path() + "/tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/tarvel_comp.log";
};

TEST_F(ProcessEndTest, StopsTheEnvironmentAndEndsRegularly) {
  constexpr char kRegular[] = "do stop by goalkeeper false";
  constexpr char kByHandler[] = "do stop by goalkeeper true";
  const struct {
    const char *ending, *steps;
    const char* logged;  // Null where it may come too late.
  } rows[] = {
    {"regular exit", "started\nthread ended\nclient returns\n", kRegular},
    {"return", "started\nclient returns\nthread ended\n", kByHandler},
    {"two lives, two starts and return",
     "started\nthread ended\nstarted\nclient returns\nthread ended\n", kByHandler},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The sanitizers don't support a fork in a process with several threads.
    {"children forked off while it logs", "started\nclient returns\nthread ended\n", kByHandler},
    {"children forked off while exports are called", "started\nthread ended\nclient returns\n",
     nullptr},
#endif
    {"exit in the log function", "started\n", nullptr},
    {"exit on another thread", "started\nthread ended\n", kByHandler},
    {"exit on another thread while exports are called", "started\nthread ended\n", nullptr},
    // The service's own thread calls exit(), so nobody can wait for its end.
    {"exit in a callback", "started\n", kByHandler},
    {"exit in a callback that an exit waits for", "started\n", nullptr},
    {"environment exit in a callback", "started\nenvironment down\nclient returns\n", kRegular},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ending);
    std::filesystem::remove(log_);
    EXPECT_EQ(OutputOf(CLIENT " '" + std::string(row.ending) + "'"), row.steps);
    if (row.logged == nullptr) continue;
    EXPECT_THAT(
        test_support::ReadFile(log_),
        testing::AllOf(testing::HasSubstr(row.logged),
                       testing::EndsWith("------------------- exit -------------------\n")));
  }
}

TEST_F(ProcessEndTest, AnUnloadEndsTheEnvironmentAndLeavesNothingBehind) {
  const std::string round = "started\nclient returns\nthread ended\n";
  EXPECT_EQ(OutputOf(LOADER " '" MODULE "' 2 return"), round + round + "unloaded\n");
  // The unload waits for a thread that ended its own environment.
  EXPECT_THAT(OutputOf(LOADER " '" MODULE "' 20 'environment exit in a callback'"),
              testing::EndsWith("unloaded\n"));
  EXPECT_EQ(OutputOf(LOADER " '" LIBRARY "' 20"), "unloaded\n");
}

}  // namespace
