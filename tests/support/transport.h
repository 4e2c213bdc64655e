#pragma once

#include <future>

#include "base/process/clock.h"
#include "tests/engine/engine.h"

namespace test_support {

using WQBASE::network::HttpRequest;
using ResponsePtr = std::shared_ptr<const WQBASE::network::HttpResponse>;

inline std::shared_ptr<HttpRequest> Get(const std::string& url, int time_out_ms = 10'000) {
  auto request = std::make_shared<HttpRequest>();
  request->url = url;
  request->method = WQBASE::network::kMethodGet;
  request->time_out = time_out_ms;
  return request;
}

// The engine of this program, with functions that wait for its responses.
class Transport {
 public:
  explicit Transport(const std::string& trust_store = "", bool verify_always = false)
      : requestor_(MakeEngine({trust_store, verify_always})) {}

  std::future<ResponsePtr> Start(std::shared_ptr<const HttpRequest> request) {
    const auto done = std::make_shared<std::promise<ResponsePtr>>();
    requestor_->Send(std::move(request), [done](const ResponsePtr& response) {
      done->set_value(response);  // Throws at a second call.
    });
    return done->get_future();
  }

  ResponsePtr Fetch(std::shared_ptr<const HttpRequest> request) {
    return Start(std::move(request)).get();
  }
  ResponsePtr Fetch(const std::string& url) { return Fetch(Get(url)); }

 private:
  const std::shared_ptr<WQBASE::network::IHttpRequestor> requestor_;
};

// Returns how many milliseconds `work` takes.
template <class F>
std::int64_t MillisecondsOf(F&& work) {
  const std::int64_t begin = zo_base::SteadyMilliseconds();
  work();
  return zo_base::SteadyMilliseconds() - begin;
}

}  // namespace test_support
