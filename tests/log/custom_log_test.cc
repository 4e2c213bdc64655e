#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tarvel/tarvel.h>

#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>

#include "base/log.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using test_support::TempDirectory;
using ::testing::EndsWith;
using ::testing::HasSubstr;

std::mutex lines_lock;
std::string lines;

void KeepLine(const char* line) {
  const std::lock_guard lock(lines_lock);
  lines += line;
}

TEST(CustomLogTest, TakesAllRecordsAndStaysAcrossAnExit) {
  const TempDirectory directory;
  _ZOTarvelEnvironmentSettings settings = test_support::TestSettings();
  std::strcpy(settings.log_path, directory.path().c_str());
  settings.custom_log = KeepLine;
  StartTarvelEnvironment(settings);
  ZO_LOG_AT(zo_base::kLogProtocol) << "a dump";
  ExitTarvelEnvironment(1);
  EXPECT_THAT(lines, HasSubstr("[LV_APP][ZO_TARVEL][unknown] \r\n------------------- start "));
  EXPECT_THAT(lines, HasSubstr("[LV_PRO][ZO_TARVEL][unknown] a dump\n"));
  EXPECT_THAT(lines, EndsWith(" exit -------------------\n"));

  lines.clear();
  settings.custom_log = nullptr;
  StartTarvelEnvironment(settings);
  ExitTarvelEnvironment(1);
  EXPECT_THAT(lines, HasSubstr("zo_tarvel config:\r\n"));
  // The file of the second life is opened, and nothing is ever written to it.
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path())) {
    EXPECT_NE(entry.path().filename(), "tarvel_comp.log");
  }
}

// A client may call in from its log function, out of any statement.
void CallIn(const char*) {
  EXPECT_EQ(StartTarvelEnvironment(test_support::TestSettings()), 0);
  ExitTarvelEnvironment(1);
}

TEST(CustomLogTest, MayCallTheLibrary) {
  _ZOTarvelEnvironmentSettings settings = test_support::TestSettings();
  settings.custom_log = CallIn;
  StartTarvelEnvironment(settings);
  ExitTarvelEnvironment(1);
  EXPECT_EQ(GetTarvelObject(1), nullptr);
}

}  // namespace
}  // namespace zo_tarvel
