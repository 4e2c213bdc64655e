#include <gmock/gmock.h>
#include <tarvel/tarvel.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/thread_info.h"
#include "tarvel/environment/exception_data.h"
#include "tarvel/environment/exception_reporter_interface.h"
#include "tests/http_agent/agent_environment.h"

namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

// What the functions below were given.
class Records {
 public:
  void Add(std::string function, TarvelExceptionData data) {
    const std::lock_guard lock(mutex_);
    received_.emplace_back(std::move(function), std::move(data));
    threads_.insert(zo_base::GetCurrentThreadInfo()->name);
    changed_.notify_all();
  }
  void Clear() {
    const std::lock_guard lock(mutex_);
    received_.clear();
    threads_.clear();
  }
  [[nodiscard]] bool Await(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20),
                             [&] { return received_.size() >= count; });
  }
  // "function:process_id"
  std::vector<std::string> Texts() {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> texts;
    for (const auto& [function, data] : received_)
      texts.push_back(function + ":" + data.process_id);
    return texts;
  }
  TarvelExceptionData last() {
    const std::lock_guard lock(mutex_);
    return received_.back().second;
  }
  std::set<std::string> threads() {
    const std::lock_guard lock(mutex_);
    return threads_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::pair<std::string, TarvelExceptionData>> received_;
  std::set<std::string> threads_;
};

Records records;

void First(const TarvelExceptionData& data) { records.Add("first", data); }
void Second(const TarvelExceptionData& data) { records.Add("second", data); }
void ExitsOnTheFirst(const TarvelExceptionData& data) {
  ExitTarvelEnvironment(1);
  records.Add("exits", data);
}

void Report(const std::string& process_id, std::vector<ExceptionDataExtension> extension = {{}}) {
  const auto details = CreateExceptionDataDetails(1);
  details->process_id = process_id;
  details->extension = std::move(extension);
  GetConfig()->GetExceptionReporter()->ReportException(details);
}

class ExceptionRecordsTest : public testing::Test {
 protected:
  ExceptionRecordsTest() { records.Clear(); }
};

TEST_F(ExceptionRecordsTest, GoInOrderToTheFirstFunctionOnTheAgentsThread) {
  AgentEnvironment environment;
  Report("1");
  Report("without a failure", {});
  Report("2");
  SetExceptionDataReporter(nullptr);
  SetExceptionDataReporter(First);
  Report("3");
  SetExceptionDataReporter(Second);
  Report("without a failure", {});
  Report("4");
  ASSERT_TRUE(records.Await(4));
  environment.Exit();
  EXPECT_THAT(records.Texts(), ElementsAre("first:1", "first:2", "first:3", "first:4"));
  EXPECT_THAT(records.threads(), ElementsAre("http_agent_work"));
}

TEST_F(ExceptionRecordsTest, CarryAllFields) {
  AgentEnvironment environment;
  SetExceptionDataReporter(First);
  const auto details = CreateExceptionDataDetails(1);
  *details = {"id", 2, 1LL << 40, 1LL << 41, 3, 4, {{5, "target", 6, "what", "more"}, {}}};
  environment.GetEnvironmentConfig()->GetExceptionReporter()->ReportException(details);
  ASSERT_TRUE(records.Await(1));
  const TarvelExceptionData data = records.last();
  EXPECT_EQ(data.user_info + data.reserved_info, "");
  EXPECT_EQ(TarvelExceptionDataToJsonString(data),
            R"({"action": 2, "duration": 1099511627776, "exception_service": 4, )"
            R"("extension": [{"code": 6, "context": "more", "description": "what", )"
            R"("operation_type": 5, "target": "target"}, {"code": 0, "context": "", )"
            R"("description": "", "operation_type": 0, "target": ""}], )"
            R"("process_id": "id", "start_time": 2199023255552, "state": 3})");
}

TEST_F(ExceptionRecordsTest, AreLostOnceTheAgentHasStopped) {
  AgentEnvironment environment;
  Report("waits");
  GetStorage()->http_agent->Uninit();
  SetExceptionDataReporter(First);
  Report("late");
  environment.Exit();
  EXPECT_THAT(records.Texts(), IsEmpty());
}

TEST_F(ExceptionRecordsTest, AndTheirFunctionBelongToOneLife) {
  SetExceptionDataReporter(First);  // Before the start: not remembered.
  {
    AgentEnvironment environment;
    Report("waits in vain");
  }
  SetExceptionDataReporter(First);
  {
    AgentEnvironment environment;
    SetExceptionDataReporter(Second);
    Report("1");
    ASSERT_TRUE(records.Await(1));
  }
  {
    AgentEnvironment environment;
    Report("2");
    SetExceptionDataReporter(First);
    ASSERT_TRUE(records.Await(2));
  }
  EXPECT_THAT(records.Texts(), ElementsAre("second:1", "first:2"));
}

TEST_F(ExceptionRecordsTest, AreEachDeliveredOnceWhateverThreadSetsTheFunction) {
  constexpr int kThreads = 8;
  constexpr int kEach = 200;
  AgentEnvironment environment;
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kEach; ++i) {
        Report(std::to_string(t) + "-" + std::to_string(i));
        if (i == kEach / 2) SetExceptionDataReporter(First);
      }
    });
  }
  threads.clear();
  ASSERT_TRUE(records.Await(kThreads * kEach));
  environment.Exit();
  std::map<std::string, int> next;  // Those of one thread keep their order.
  for (const std::string& text : records.Texts()) {
    const auto dash = text.find('-');
    EXPECT_EQ(text.substr(dash + 1), std::to_string(next[text.substr(0, dash)]++));
  }
  EXPECT_EQ(next.size(), static_cast<std::size_t>(kThreads));
}

TEST_F(ExceptionRecordsTest, EndWithAnExitInTheFunction) {
  {
    AgentEnvironment environment;
    for (const char* id : {"1", "2", "3"}) Report(id);
    SetExceptionDataReporter(ExitsOnTheFirst);
    ASSERT_TRUE(records.Await(1));
    environment.WasExited();
  }
  AgentEnvironment environment;
  Report("4");
  SetExceptionDataReporter(First);
  ASSERT_TRUE(records.Await(2));
  EXPECT_THAT(records.Texts(), ElementsAre("exits:1", "first:4"));
}

TEST_F(ExceptionRecordsTest, BecomeJsonWithoutAnEnvironment) {
  TarvelExceptionData data;
  data.user_info = "left out";
  data.reserved_info = "left out";
  data.process_id = "a\"b";
  EXPECT_EQ(TarvelExceptionDataToJsonString(data),
            R"({"action": 0, "duration": 0, "exception_service": 0, "extension": [], )"
            R"("process_id": "a\"b", "start_time": 0, "state": 0})");
}

TEST(ExceptionCategoryTest, BelongsToTheServiceCode) {
  const std::map<std::int32_t, std::int32_t> categories = {
      {0, 5}, {2, 1}, {3, 2}, {301, 3}, {302, 4}, {350, 8}, {1, 0}, {-1, 0}, {300, 0}, {351, 0}};
  for (const auto& [code, category] : categories) {
    EXPECT_EQ(GetExceptionCategory(code), category) << code;
  }
}

TEST(TraceIdTest, IsWellFormedAndNeverTheSame) {
  constexpr int kThreads = 8;
  constexpr std::size_t kEach = 12'500;
  AgentEnvironment environment;
  const auto config = GetConfig();
  std::vector<std::vector<std::string>> ids(kThreads);
  {
    std::vector<std::jthread> threads;
    for (auto& own : ids) {
      threads.emplace_back([&] {
        while (own.size() < kEach) own.push_back(config->GenerateTraceId());
      });
    }
  }
  std::set<std::string> whole;
  std::set<std::string> random_parts;
  for (const auto& own : ids) {
    for (const std::string& id : own) {
      whole.insert(id);
      random_parts.insert(id.substr(16));
    }
    EXPECT_TRUE(std::is_sorted(own.begin(), own.end(), [](const auto& one, const auto& other) {
      return one.compare(0, 16, other, 0, 16) < 0;  // The clock.
    }));
  }
  EXPECT_EQ(whole.size(), kThreads * kEach);
  EXPECT_EQ(random_parts.size(), kThreads * kEach);
  for (const std::string& id : whole) {
    std::string shape = id;
    for (char& c : shape) {
      if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')) c = 'x';
    }
    ASSERT_EQ(shape, "xxxxxxxxxxxxxxxx-xxxxxxxx-xxxx-xxxx-xxxxxxxxxxxx");
  }
}

}  // namespace
}  // namespace zo_tarvel
