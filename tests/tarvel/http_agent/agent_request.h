#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "base/thread/thread_info.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"
#include "tests/support/agent_environment.h"
#include "tests/support/mailbox.h"

namespace test_support {

using Texts = std::vector<std::string>;

inline constexpr char kRefused[] = "http://127.0.0.1:1/refused";  // Nobody listens on this port.

// What a logical request came to.
struct Result {
  std::string verdict;  // "success" or "failure", or one of them with " stop".
  std::string headers, body, thread;
  Texts judged;  // Index and code of each answer.
  Texts tried;   // Their URLs.
};
using Results = Mailbox<Result>;

// A request that puts its result into `results`. It takes an answer of status 200 for a success;
// any other body may be "stop", or "unnoticed" by reports.
inline zo_tarvel::MultipleURLHttpRequest Request(const Texts& urls, Results& results) {
  zo_tarvel::MultipleURLHttpRequest request;
  for (const std::string& url : urls) request.urls.push_back({"", url});
  request.time_out = request.multiple_time_out = 60'000;
  const auto result = std::make_shared<Result>();
  request.check_callback = [result](std::int32_t index, std::int32_t code, auto& url, auto& headers,
                                    auto& body, std::uint64_t) {
    result->judged.push_back(std::to_string(index) + ":" + std::to_string(code));
    result->tried.push_back(url);
    result->headers = headers;
    result->body = body;
    return zo_tarvel::MultipleURLHttpRequest::CheckCallbackResult{code == 200, body != "unnoticed",
                                                                  body.ends_with("stop"), "bad"};
  };
  request.result_callback = [result, &results](bool stop, bool success, auto& headers, auto& body) {
    EXPECT_EQ(headers + body, result->headers + result->body);  // Those of the last answer.
    result->verdict = std::string(success ? "success" : "failure") + (stop ? " stop" : "");
    result->thread = zo_base::GetCurrentThreadInfo()->name;
    results.Put(*result);
  };
  return request;
}

// Sends it to the agent's thread, and waits for its result.
inline Result Send(AgentEnvironment& environment, const Texts& urls) {
  Results results;
  environment.InvokeHttpRequest(Request(urls, results), true);
  return results.Take();
}

// The records of failures that TakeRecord was given.
inline Mailbox<zo_tarvel::TarvelExceptionData> records;

inline void TakeRecord(const zo_tarvel::TarvelExceptionData& data) {
  EXPECT_EQ(zo_base::GetCurrentThreadInfo()->name, "http_agent_work");
  records.Put(data);
}

}  // namespace test_support
