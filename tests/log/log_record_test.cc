#include "base/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/task_thread.h"

namespace zo_base {
namespace {

using ::testing::EndsWith;
using ::testing::MatchesRegex;

class KeepingWriter : public ITQlogWriter {
 public:
  std::string_view GetIdent() const override { return ident; }
  void Write(std::int32_t, const std::string& text) override { records.push_back(text); }

  std::string ident;
  std::vector<std::string> records;
};

constexpr LogLocation kHere{"some_file", 12, "operator()"};

const char kPrefix[] = "[0-9][0-9]-[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9][.][0-9][0-9][0-9] ";

class LogRecordTest : public ::testing::Test {
 protected:
  // The one record that a statement has made.
  template <class... Values>
  std::string Logged(std::int32_t level, const Values&... values) {
    writer_->records.clear();
    {
      QLogHelper record(level, kHere, writer_);
      (record.stream() << ... << values);
    }
    EXPECT_EQ(writer_->records.size(), 1u);
    return writer_->records.front();
  }

  std::shared_ptr<KeepingWriter> writer_ = std::make_shared<KeepingWriter>();
};

TEST_F(LogRecordTest, BeginsWithTimeProcessThreadLevelAndThreadName) {
  EXPECT_THAT(Logged(kLogApp, "text"),
              MatchesRegex(kPrefix + std::to_string(getpid()) + "-" +
                           std::to_string(pthread_self()) + " \\[LV_APP\\]\\[unknown\\] text\n"));
  writer_->ident = "ZO_TARVEL";
  std::string record;
  const auto thread = std::make_shared<BaseThread>("a thread", [&] { record = Logged(kLogApp); });
  thread->Start();
  thread->Stop();
  EXPECT_THAT(record, EndsWith(" [LV_APP][ZO_TARVEL][a thread] \n"));
}

TEST_F(LogRecordTest, TellsItsPlaceUpToLevelThreeAndTakesAnyBytes) {
  const std::string levels[] = {"LV_KER", "LV_ASS", "LV_ERR", "LV_WAR",
                                "LV_INT", "LV_APP", "LV_PRO"};
  for (std::int32_t level = 0; level <= 6; ++level) {
    const std::string place = level <= 3 ? "\n @[location] some_file:12\n\n" : "\n";
    EXPECT_THAT(Logged(level, "text"), EndsWith("[" + levels[level] + "][unknown] text" + place));
  }
  const char* const null_text = nullptr;
  EXPECT_THAT(Logged(kLogApp, kLogNotMapped, null_text, std::string("a\0b", 3)),
              EndsWith(std::string("] 2a\0b\n", 7)));
}

}  // namespace
}  // namespace zo_base
