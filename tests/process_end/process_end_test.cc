// All ways in which a client's process, or the library's stay in it, comes to an end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/temp_directory.h"

#define IM_G1_DIGEST "d6f07bc61ae1384e48a8edaab463328b"  // As md5sum has it.

namespace {

struct Ended {
  int status;  // As of waitpid; 0 is a regular end with exit code 0.
  std::string output;
};

// Where children log.
const std::string& LogPath() {
  static const test_support::TempDirectory directory;
  return directory.path();
}

// The log of the children, whose business is the default one.
std::string ReadLog() {
  return test_support::ReadFile(LogPath() + "/tarvel_comp/" IM_G1_DIGEST "/tarvel_comp.log");
}

// Runs a child to its end. A hung one is killed after 30 s.
Ended RunChild(const std::string& command) {
  FILE* child = popen(
      ("TEST_LOG_PATH=" + LogPath() + " timeout -s KILL 30 " + command + " 2>&1").c_str(), "r");
  std::string output;
  char chunk[4096];
  while (const std::size_t read = fread(chunk, 1, sizeof chunk, child)) output.append(chunk, read);
  return {pclose(child), output};
}

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

struct EndCase {
  const char* name;
  const char* ending;
  const char* steps;
  const char* logged;  // The last word of the goalkeeper; null where it may come too late.
};
class ProcessEndTest : public ::testing::TestWithParam<EndCase> {};

TEST_P(ProcessEndTest, StopsTheEnvironmentAndEndsRegularly) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  if (std::string(GetParam().name).starts_with("ChildrenForkedOff")) {
    GTEST_SKIP() << "The sanitizers bear no work in a child of several threads' process.";
  }
#endif
  const Ended ended = RunChild(std::string(CLIENT) + " " + Quoted(GetParam().ending));
  EXPECT_EQ(ended.status, 0) << ended.output;
  EXPECT_EQ(ended.output, GetParam().steps);
  if (GetParam().logged == nullptr) return;
  EXPECT_THAT(ReadLog(), ::testing::HasSubstr(GetParam().logged));
  EXPECT_THAT(ReadLog(), ::testing::EndsWith("------------------- exit -------------------\n"));
}

constexpr char kRegular[] = "do stop by goalkeeper false";
constexpr char kByHandler[] = "do stop by goalkeeper true";

INSTANTIATE_TEST_SUITE_P(
    Client, ProcessEndTest,
    ::testing::ValuesIn(std::vector<EndCase>{
        {"RegularExit", "regular exit", "started\nthread ended\nclient returns\n", kRegular},
        {"Return", "return", "started\nclient returns\nthread ended\n", kByHandler},
        {"TwoLivesAndReturn", "two lives and return",
         "started\nthread ended\nstarted\nclient returns\nthread ended\n", kByHandler},
        {"TwoStartsAndReturn", "two starts and return", "started\nclient returns\nthread ended\n",
         kByHandler},
        {"ChildrenForkedOff", "children forked off while it logs",
         "started\nclient returns\nthread ended\n", kByHandler},
        {"ChildrenForkedOffBesideCalls", "children forked off while exports are called",
         "started\nthread ended\nclient returns\n", nullptr},
        {"ExitInTheLogFunction", "exit in the log function", "started\nthread ended\n", nullptr},
        {"ExitOnAnotherThread", "exit on another thread", "started\nthread ended\n", kByHandler},
        {"ExitOnAnotherThreadBesideCalls", "exit on another thread while exports are called",
         "started\nthread ended\n", nullptr},
        // The thread that calls exit() is the service's own and cannot be waited for.
        {"ExitInACallback", "exit in a callback", "started\n", kByHandler},
        {"ExitInACallbackBesideAnExit", "exit in a callback that an exit waits for", "started\n",
         nullptr},
        {"EnvironmentExitInACallback", "environment exit in a callback",
         "started\nenvironment down\nclient returns\n", kRegular}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(UnloadTest, StopsAnEnvironmentThatIsStillUp) {
  const Ended ended = RunChild(std::string(LOADER) + " " + Quoted(MODULE) + " 2 return");
  EXPECT_EQ(ended.status, 0) << ended.output;
  const std::string round = "started\nclient returns\nthread ended\n";
  EXPECT_EQ(ended.output, round + round + "unloaded\n");
}

TEST(UnloadTest, WaitsForAThreadThatEndedItsOwnEnvironment) {
  const Ended ended =
      RunChild(std::string(LOADER) + " " + Quoted(MODULE) + " 20 'environment exit in a callback'");
  EXPECT_EQ(ended.status, 0) << ended.output;
  EXPECT_THAT(ended.output, ::testing::EndsWith("unloaded\n"));
}

TEST(UnloadTest, LeavesNothingOfTheLibraryBehindHoweverOftenItIsLoaded) {
  const Ended ended = RunChild(std::string(LOADER) + " " + Quoted(LIBRARY) + " 20");
  EXPECT_EQ(ended.status, 0) << ended.output;
  EXPECT_EQ(ended.output, "unloaded\n");
}

}  // namespace
