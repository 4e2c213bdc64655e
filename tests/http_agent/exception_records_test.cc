#include <gmock/gmock.h>
#include <tarvel/tarvel.h>

#include <condition_variable>
#include <memory>
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

// What the functions below were given: "function:process_id".
struct Records {
  void Add(const std::string& function, const TarvelExceptionData& data) {
    EXPECT_EQ(zo_base::GetCurrentThreadInfo()->name, "http_agent_work");
    const std::lock_guard lock(mutex);
    texts.push_back(function + ":" + data.process_id);
    last = data;
    changed.notify_all();
  }
  [[nodiscard]] bool Await(std::size_t count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), [&] { return texts.size() >= count; });
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> texts;
  TarvelExceptionData last;
};

std::unique_ptr<Records> records;

void First(const TarvelExceptionData& data) { records->Add("first", data); }
void Second(const TarvelExceptionData& data) { records->Add("second", data); }
void Exits(const TarvelExceptionData& data) {
  ExitTarvelEnvironment(1);
  records->Add("exits", data);
}

void Report(const std::string& process_id, std::vector<ExceptionDataExtension> extension = {{}}) {
  const auto details = CreateExceptionDataDetails(1);
  details->process_id = process_id;
  details->extension = std::move(extension);
  GetConfig()->GetExceptionReporter()->ReportException(details);
}

class ExceptionRecordsTest : public testing::Test {
 protected:
  ExceptionRecordsTest() { records = std::make_unique<Records>(); }
};

TEST_F(ExceptionRecordsTest, GoInOrderToTheFirstFunctionOnTheAgentsThread) {
  AgentEnvironment environment;
  Report("1");
  Report("without a failure", {});
  SetExceptionDataReporter(nullptr);
  SetExceptionDataReporter(First);
  std::thread([] { Report("2"); }).join();
  SetExceptionDataReporter(Second);
  Report("3");
  ASSERT_TRUE(records->Await(3));
  environment.Exit();
  EXPECT_THAT(records->texts, ElementsAre("first:1", "first:2", "first:3"));
}

TEST_F(ExceptionRecordsTest, CarryAllFields) {
  AgentEnvironment environment;
  SetExceptionDataReporter(First);
  const auto details = CreateExceptionDataDetails(1);
  *details = {"a\"b", 2, 1LL << 40, 1LL << 41, 3, 4, {{5, "target", 6, "what", "more"}, {}}};
  environment.GetEnvironmentConfig()->GetExceptionReporter()->ReportException(details);
  ASSERT_TRUE(records->Await(1));
  const TarvelExceptionData data = records->last;
  EXPECT_EQ(data.user_info + data.reserved_info, "");  // Else left out all the same.
  EXPECT_EQ(TarvelExceptionDataToJsonString(data),
            R"({"action": 2, "duration": 1099511627776, "exception_service": 4, )"
            R"("extension": [{"code": 6, "context": "more", "description": "what", )"
            R"("operation_type": 5, "target": "target"}, {"code": 0, "context": "", )"
            R"("description": "", "operation_type": 0, "target": ""}], )"
            R"("process_id": "a\"b", "start_time": 2199023255552, "state": 3})");
}

TEST_F(ExceptionRecordsTest, AndTheirFunctionEndWithTheirLifeAlsoWhenTheFunctionExits) {
  SetExceptionDataReporter(First);  // Before the start: not remembered.
  {
    AgentEnvironment environment;
    for (const char* id : {"1", "2", "3"}) Report(id);
    SetExceptionDataReporter(Exits);
    ASSERT_TRUE(records->Await(1));
    environment.WasExited();
  }
  AgentEnvironment environment;
  Report("4");
  SetExceptionDataReporter(Second);
  ASSERT_TRUE(records->Await(2));
  EXPECT_THAT(records->texts, ElementsAre("exits:1", "second:4"));
}

TEST(TraceIdTest, IsWellFormedAndNeverTheSame) {
  AgentEnvironment environment;
  std::set<std::string> random_parts;
  for (int i = 0; i < 10'000; ++i) random_parts.insert(GetConfig()->GenerateTraceId().substr(16));
  EXPECT_EQ(random_parts.size(), 10'000U);
  EXPECT_THAT(GetConfig()->GenerateTraceId(),
              testing::MatchesRegex("[0-9a-f]{16}-[0-9a-f]{8}(-[0-9a-f]{4}){2}-[0-9a-f]{12}"));
}

}  // namespace
}  // namespace zo_tarvel
