#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/base_thread.h"
#include "base/log.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using test_support::TempDirectory;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

std::mutex lines_lock;
std::vector<std::string> lines;

void KeepLine(const char* line) {
  const std::lock_guard lock(lines_lock);
  lines.emplace_back(line);
}

TEST(CustomLogTest, TakesAllRecordsInOneFormatAndStaysAcrossAnExit) {
  const TempDirectory directory;
  _ZOTarvelEnvironmentSettings settings = test_support::TestSettings();
  std::strcpy(settings.log_path, directory.path().c_str());
  settings.custom_log = KeepLine;
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
    const std::string place = level <= 3 ? "\n @.location. custom_log_test:[0-9]+\n\n" : "\n";
    EXPECT_THAT(lines, Contains(MatchesRegex(begin + " .LV_" + levels[level] +
                                             "..ZO_TARVEL..unknown. text" + std::to_string(level) +
                                             place)));
  }

  lines.clear();
  settings.custom_log = nullptr;
  StartTarvelEnvironment(settings);
  ExitTarvelEnvironment(1);
  EXPECT_THAT(lines, Contains(HasSubstr("zo_tarvel config:\r\n")));
  // The file of the second life is opened, and nothing is ever written to it.
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path())) {
    EXPECT_NE(entry.path().filename(), "tarvel_comp.log");
  }
}

}  // namespace
}  // namespace zo_tarvel
