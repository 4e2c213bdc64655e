#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "network/http/http_request.h"

namespace WQBASE::network {

// The one status of a good answer.
inline constexpr std::int32_t kHttpOk = 200;

// How one transfer ended.
struct HttpResponse {
  virtual ~HttpResponse() = default;

  bool success = false;            // The status is exactly 200, and the answer came whole.
  std::vector<std::uint8_t> body;  // Raw bytes, decoded.
  Headers headers;                 // In the order in which they came.
  std::int64_t status = 0;         // HTTP status; 0 without an answer, or when a 200 broke off.
  std::string error_text;          // Why there is no status 200; empty when there is.
  std::string body_text;           // The body again, as text.
};

// What the logic gets. The texts end at their first NUL; `body` has everything.
struct HttpResponseUser : HttpResponse {
  const HttpRequestUser* request = nullptr;  // Outlives this response's callback.
};

}  // namespace WQBASE::network
