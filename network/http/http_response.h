#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "network/http/http_request.h"

namespace WQBASE::network {

// The only status of a successful response.
inline constexpr std::int32_t kHttpOk = 200;

// The result of one transfer.
struct HttpResponse {
  HttpResponse() = default;
  HttpResponse(const HttpResponse&) = default;
  HttpResponse(HttpResponse&&) = default;
  HttpResponse& operator=(const HttpResponse&) = default;
  HttpResponse& operator=(HttpResponse&&) = default;
  virtual ~HttpResponse() = default;

  bool success = false;            // The status is exactly 200, and the body is complete.
  std::vector<std::uint8_t> body;  // Without its content coding.
  Headers headers;                 // In the order of the answer.
  std::int64_t status = 0;         // 0 without an answer, or when one with status 200 broke off.
  std::string error_text;          // Why the status isn't 200; empty when it is.
  std::string body_text;           // The body again, as text.
};

// The response as the request's callback gets it. The texts are cut at their first NUL; `body` is
// complete.
struct HttpResponseUser : HttpResponse {
  const HttpRequestUser* request = nullptr;  // Outlives the call of its callback.
};

}  // namespace WQBASE::network
