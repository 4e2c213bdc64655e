// The log as a client finds it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

#include "base/log.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tests/log/companion_support.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using ::testing::ContainsRegex;
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

TEST_F(LogEnvironmentTest, TellsOfALifeFromStartToExitAndLeavesDumpsOut) {
  const std::string log = LogAfterALife([] {
    ZO_LOG_AT(zo_base::kLogProtocol) << "a dump";
    ZO_LOG << "in between";
  });
  EXPECT_THAT(log, ContainsRegex("------------------- start -------------------\n.*"
                                 "zo_tarvel config:\r\n.*in between\n.*"
                                 "exit time spent:[0-9]+ms from [0-9 :.-]+ to [0-9 :.-]+\n.*"
                                 "------------------- exit -------------------\n$"));
  EXPECT_THAT(log, Not(HasSubstr("a dump")));
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
  EXPECT_THAT(log, HasSubstr("last words\n" + std::string(zo_base::kLoadEnd)));
  EXPECT_LT(log.find(zo_base::kLoadBegin), log.find("last words"));
}

}  // namespace
}  // namespace zo_tarvel
