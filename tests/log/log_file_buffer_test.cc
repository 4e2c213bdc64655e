#include "base/log_file_buffer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/temp_directory.h"

namespace zo_base {
namespace {

using test_support::ReadFile;
using test_support::TempDirectory;
using test_support::WriteFile;

constexpr std::size_t kSize = 65536;

// Text as it stands in the log after it was recovered.
std::string Recovered(const std::string& text) {
  return "\r\n -----------------------load from mmap file begin-----------------------\r\n" + text +
         "\r\n -----------------------load from mmap file end-----------------------\r\n";
}

// A companion of `size` bytes whose count says `used`, as the machine writes it.
std::string CompanionOf(std::int32_t used, const std::string& text, std::size_t size) {
  std::string content(reinterpret_cast<const char*>(&used), sizeof used);
  content += text;
  content.resize(size, '\0');
  return content;
}

TEST(FoundCompanionTest, IsSentToTheSinkAndMadeReady) {
  const std::string full(kSize - 4, 't');
  const struct {
    const char* name;
    std::string found;
    std::string log_text;  // What reaches the sink.
    std::int32_t result;
  } rows[] = {
      {"of length zero", "", "", 0},
      {"filled to the last byte", CompanionOf(65532, full, kSize), Recovered(full), 0},
      {"count one too high", CompanionOf(65533, full, kSize), "", 3},
      {"count negative", CompanionOf(-1, "text", kSize), "", 3},
      {"shorter", CompanionOf(4, "text", 4096), Recovered("text"), 0},
      {"longer", CompanionOf(4, "text", 2 * kSize), Recovered("text"), 0},
      {"shorter with count too high", CompanionOf(4093, "text", 4096), "", 0},
      {"shorter than its header", "abc", "", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const TempDirectory directory;
    const std::string companion = directory / "companion";
    WriteFile(companion, row.found);
    std::string log_text;
    LogFileBuffer buffer([&](const std::string& text) {
      log_text += text;
      return true;
    });
    EXPECT_EQ(buffer.Init(companion, kSize), row.result);
    EXPECT_EQ(log_text, row.log_text);
    EXPECT_EQ(ReadFile(companion), std::string(kSize, '\0'));
    EXPECT_TRUE(buffer.ready());
  }
}

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

TEST_F(LogFileBufferTest, KeepsRecordsInTheFileUntilOneDoesNotFit) {
  buffer_.Append("0123456789");
  buffer_.Append("abcdefghijklmnopq");
  EXPECT_TRUE(sunk_.empty());
  EXPECT_EQ(ReadFile(companion_), CompanionOf(27, "0123456789abcdefghijklmnopq", kSmall));
  buffer_.Append("r");  // 27 + 1 + 4 is the size: one that would fill it exactly.
  buffer_.Append("before ");
  buffer_.Append(std::string(70000, 'x'));
  EXPECT_EQ(sunk_, (std::vector<std::string>{"0123456789abcdefghijklmnopqr",
                                             "before " + std::string(70000, 'x')}));
  EXPECT_EQ(ReadFile(companion_), std::string(kSmall, '\0'));
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

}  // namespace
}  // namespace zo_base
