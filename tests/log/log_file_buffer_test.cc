#include "base/log_file_buffer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/log/companion_support.h"
#include "tests/support/temp_directory.h"

namespace zo_base {
namespace {

using test_support::ReadFile;
using test_support::TempDirectory;
using test_support::WriteFile;

constexpr std::size_t kSize = 65536;

// What a companion that was found at the start becomes.
struct FoundCase {
  const char* name;
  std::string found;
  std::string log_text;  // What reaches the sink.
  std::int32_t result;
  std::string left;  // The file while the buffer is open.
};
class FoundCompanionTest : public ::testing::TestWithParam<FoundCase> {};

TEST_P(FoundCompanionTest, IsSentToTheSinkAndMadeReady) {
  const TempDirectory directory;
  const std::string companion = directory / "companion";
  WriteFile(companion, GetParam().found);
  std::string log_text;
  LogFileBuffer buffer([&](const std::string& text) {
    log_text += text;
    return true;
  });
  EXPECT_EQ(buffer.Init(companion, kSize), GetParam().result);
  EXPECT_EQ(log_text, GetParam().log_text);
  EXPECT_EQ(ReadFile(companion), GetParam().left);
  EXPECT_TRUE(buffer.ready());
}

INSTANTIATE_TEST_SUITE_P(
    Companions, FoundCompanionTest,
    ::testing::ValuesIn(std::vector<FoundCase>{
        {"Empty", EmptyCompanion(kSize), "", 0, EmptyCompanion(kSize)},
        {"OfLengthZero", "", "", 0, EmptyCompanion(kSize)},
        {"WithText", CompanionOf(100, std::string(100, 't'), kSize),
         Recovered(std::string(100, 't')), 0, EmptyCompanion(kSize)},
        {"FilledToTheLastByte", CompanionOf(65532, std::string(65532, 't'), kSize),
         Recovered(std::string(65532, 't')), 0, EmptyCompanion(kSize)},
        {"CountOneTooHigh", CompanionOf(65533, std::string(65532, 't'), kSize), "", 3,
         EmptyCompanion(kSize)},
        {"CountNegative", CompanionOf(-1, "text", kSize), "", 3, EmptyCompanion(kSize)},
        {"CountHighest", CompanionOf(INT32_MAX, "text", kSize), "", 3, EmptyCompanion(kSize)},
        {"Shorter", CompanionOf(4, "text", 4096), Recovered("text"), 0, EmptyCompanion(kSize)},
        {"Longer", CompanionOf(4, "text", 2 * kSize), Recovered("text"), 0, EmptyCompanion(kSize)},
        {"ShorterWithCountTooHigh", CompanionOf(4093, "text", 4096), "", 0, EmptyCompanion(kSize)},
        {"ShorterThanItsHeader", "abc", "", 0, EmptyCompanion(kSize)},
        {"OfOneByte", "a", "", 0, EmptyCompanion(kSize)}}),
    [](const auto& row) { return std::string(row.param.name); });

class LogFileBufferTest : public ::testing::Test {
 protected:
  // Usable bytes of a small buffer: `kSmall` less the header, and less one that is never filled.
  static constexpr std::uint32_t kSmall = 32;

  LogFileBufferTest() { EXPECT_EQ(buffer_.Init(companion_, kSmall), kLogReady); }

  const TempDirectory directory_;
  const std::string companion_ = directory_ / "companion";
  std::vector<std::string> sunk_;
  LogFileBuffer buffer_{[this](const std::string& text) {
    sunk_.push_back(text);
    return true;
  }};
};

TEST_F(LogFileBufferTest, KeepsARecordInTheFileUntilItIsFull) {
  buffer_.Append("0123456789");
  buffer_.Append("abcdefghijklmnop");
  EXPECT_TRUE(sunk_.empty());
  EXPECT_EQ(ReadFile(companion_), CompanionOf(26, "0123456789abcdefghijklmnop", kSmall));
  buffer_.Append("Z");
  EXPECT_TRUE(sunk_.empty());
}

TEST_F(LogFileBufferTest, TakesARecordThatWouldFillItExactlyAsTooLong) {
  buffer_.Append("0123456789");
  buffer_.Append("abcdefghijklmnopqr");  // 10 + 18 + 4 is its size.
  EXPECT_EQ(sunk_, std::vector<std::string>{"0123456789abcdefghijklmnopqr"});
  EXPECT_EQ(ReadFile(companion_), EmptyCompanion(kSmall));
}

TEST_F(LogFileBufferTest, SendsARecordLongerThanItselfWithAllBeforeIt) {
  buffer_.Append("before ");
  buffer_.Append(std::string(70000, 'x'));
  EXPECT_EQ(sunk_, std::vector<std::string>{"before " + std::string(70000, 'x')});
  buffer_.Append("after");
  EXPECT_EQ(ReadFile(companion_), CompanionOf(5, "after", kSmall));
}

TEST_F(LogFileBufferTest, FlushesAndClosesWithWhatItHolds) {
  buffer_.Append("one");
  EXPECT_TRUE(buffer_.Flush());
  EXPECT_TRUE(buffer_.Flush());
  buffer_.Append("two");
  buffer_.Close();
  buffer_.Append("dropped");
  EXPECT_EQ(sunk_, (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(ReadFile(companion_), EmptyCompanion(kSmall));
}

TEST_F(LogFileBufferTest, GoesOnAfterItsFileWasCutShort) {
  // To nothing, and inside its last page.
  for (const off_t length : {off_t{0}, off_t{kSmall - 1}}) {
    buffer_.Append("lost");
    ASSERT_EQ(truncate(companion_.c_str(), length), 0);
    buffer_.Append("found");
    EXPECT_EQ(ReadFile(companion_), CompanionOf(5, "found", kSmall));
  }
}

TEST_F(LogFileBufferTest, DropsTheRecordsOfAForkedChild) {
  buffer_.Append("parent ");
  const pid_t child = fork();
  if (child == 0) {
    buffer_.Append("child");
    buffer_.Close();
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  buffer_.Append("goes on");
  buffer_.Close();
  EXPECT_EQ(sunk_, std::vector<std::string>{"parent goes on"});
}

TEST_F(LogFileBufferTest, LeavesACompanionThatALivingOneHas) {
  buffer_.Append("first");
  std::string second_log;
  LogFileBuffer second([&](const std::string& text) {
    second_log += text;
    return true;
  });
  EXPECT_EQ(second.Init(companion_, 4096), kLogReady);  // Another length is no reason to touch it.
  second.Append("second");
  EXPECT_EQ(ReadFile(companion_), CompanionOf(5, "first", kSmall));
  second.Close();
  EXPECT_EQ(second_log, "second");
  EXPECT_TRUE(sunk_.empty());
}

}  // namespace
}  // namespace zo_base
