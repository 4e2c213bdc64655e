#include "base/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "base/task_thread.h"

namespace zo_base {
namespace {

using ::testing::MatchesRegex;

class KeepingWriter : public ITQlogWriter {
 public:
  std::string_view GetIdent() const override { return ident; }
  void Write(std::int32_t, const std::string& text) override { records.push_back(text); }

  std::string ident;
  std::vector<std::string> records;
};

// Of a writer that wants nothing but the message.
class BareWriter final : public KeepingWriter {
 public:
  bool PrintTime() const override { return false; }
  bool PrintProcessThread() const override { return false; }
  bool PrintLevel() const override { return false; }
  bool PrintThreadName() const override { return false; }
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
  EXPECT_THAT(Logged(kLogApp), MatchesRegex(".* \\[LV_APP\\]\\[ZO_TARVEL\\]\\[unknown\\] \n"));
}

TEST_F(LogRecordTest, NamesItsThread) {
  for (const std::string name : {"tarvel_http_client", ""}) {
    const auto thread = std::make_shared<TaskThread>(name);
    std::promise<std::string> record;
    thread->Start();
    thread->PostTask([&] { record.set_value(Logged(kLogApp)); });
    EXPECT_THAT(record.get_future().get(),
                ::testing::HasSubstr("][" + (name.empty() ? "unknown" : name) + "] \n"));
    thread->Stop();
  }
}

TEST_F(LogRecordTest, TellsItsPlaceUpToLevelThree) {
  const std::string levels[] = {"LV_KER", "LV_ASS", "LV_ERR", "LV_WAR",
                                "LV_INT", "LV_APP", "LV_PRO"};
  for (std::int32_t level = 0; level <= 6; ++level) {
    const std::string place = level <= 3 ? "\n @[location] some_file:12\n\n" : "\n";
    EXPECT_THAT(Logged(level, "text"),
                ::testing::EndsWith("[" + levels[level] + "][unknown] text" + place));
  }
  EXPECT_THAT(Logged(7), ::testing::HasSubstr(" [][unknown]"));
  EXPECT_THAT(Logged(-1), ::testing::HasSubstr(" [][unknown]"));
}

TEST_F(LogRecordTest, HoldsValuesAsAStreamWritesThem) {
  writer_ = std::make_shared<BareWriter>();
  const char* null_text = nullptr;
  EXPECT_EQ(Logged(kLogApp, "t ", std::string("s "), 'c', ' ', -7, ' ', 18446744073709551615u, ' ',
                   true, false, ' ', kLogNotMapped, null_text),
            "t s c -7 18446744073709551615 10 2\n");
  EXPECT_EQ(Logged(kLogApp, std::string("a\0b", 3)), std::string("a\0b\n", 4));
}

TEST(LogLocationTest, IsEmptyWhenUnknown) {
  EXPECT_EQ(kHere.ToText(), "some_file:12");
  EXPECT_EQ(kHere.ToText(true), "operator()@some_file:12");
  EXPECT_EQ((LogLocation{"some_file", -1, "f"}).ToText(), "");
  EXPECT_EQ((LogLocation{"some_file", 12, ""}).ToText(), "");
  EXPECT_EQ(BaseNameOfSource("tarvel/environment/environment_manager.cc"), "environment_manager");
}

TEST(LogStatementTest, VanishesWithoutAWriter) {
  EXPECT_EQ(GetLogWriter(), nullptr);
  ZO_LOG << "nobody hears this";
}

}  // namespace
}  // namespace zo_base
