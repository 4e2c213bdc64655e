// The log as a client finds it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <string>

#include "base/log.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tests/log/companion_support.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class LogEnvironmentTest : public ::testing::Test {
 protected:
  // A whole life, in which `act` happens. Answers the log after it.
  template <class Act>
  std::string LogAfterALife(Act&& act) {
    _ZOTarvelEnvironmentSettings settings;
    std::strcpy(settings.log_path, directory_.path().c_str());
    StartTarvelEnvironment(settings);
    const std::string log = GetStorage()->config->log_path() + "tarvel_comp.log";
    act();
    ExitTarvelEnvironment(1);
    return test_support::ReadFile(log);
  }

  const test_support::TempDirectory directory_;
};

TEST_F(LogEnvironmentTest, TellsOfALifeFromStartToExit) {
  const std::string log = LogAfterALife([] { ZO_LOG << "in between"; });
  std::size_t at = 0;
  for (const char* line :
       {"\r\n------------------- start -------------------\n", "zo_tarvel config:\r\n",
        "in between\n", "do stop by goalkeeper false\n", "stop environmen begin\n",
        "stop all tarvel obj begin\n", "stop all tarvel obj end\n", "stop environmen end\n",
        "all tarvel_object release begin\n", "all tarvel_object release end\n",
        "environment release begin\n", "environment release end\n",
        "exit time spent:", "\r\n------------------- exit -------------------\n"}) {
    at = log.find(line, at);
    ASSERT_NE(at, std::string::npos) << line;
  }
  EXPECT_THAT(log,
              ::testing::ContainsRegex("exit time spent:[0-9]+ms from [0-9 :.-]+ to [0-9 :.-]+\n"));
}

TEST_F(LogEnvironmentTest, LeavesDumpsOut) {
  const std::string log = LogAfterALife([] {
    ZO_LOG_AT(zo_base::kLogProtocol) << "a dump";
    ZO_LOG << "no dump";
  });
  EXPECT_THAT(log, Not(HasSubstr("a dump")));
  EXPECT_THAT(log, HasSubstr("no dump"));
}

TEST_F(LogEnvironmentTest, TheNextStartFindsTheLastWordsOfAKilledProcess) {
  const pid_t child = fork();
  if (child == 0) {
    LogAfterALife([] {
      ZO_LOG << "last words";
      raise(SIGKILL);
    });
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  const std::string log = LogAfterALife([] {});
  const std::size_t begin = log.find(zo_base::kLoadBegin);
  const std::size_t words = log.find("last words\n" + std::string(zo_base::kLoadEnd));
  EXPECT_NE(begin, std::string::npos);
  EXPECT_NE(words, std::string::npos);
  EXPECT_LT(begin, words);
}

}  // namespace
}  // namespace zo_tarvel
