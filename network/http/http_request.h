#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "network/http/headers.h"

namespace WQBASE::network {

struct HttpResponseUser;

// Values of a request's `method`. Any other value means the same as kMethodUnset.
enum HttpMethod : std::int32_t {
  kMethodGet = 0,
  kMethodPost = 1,
  kMethodNone = 2,  // Without a verb.
  kMethodPut = 3,
  kMethodDelete = 4,
  kMethodUnset = 5,  // The transport uses its default verb.
};

// "GET", "POST", "PUT" or "DELETE"; empty for a method without a verb.
const char* VerbOf(std::int32_t method);

// What one transfer asks for.
//
// Threads: filled by one thread, then handed over and only read. The constructor takes the id from
// a counter of the process; the first id is 1.
struct HttpRequest {
  HttpRequest();
  virtual ~HttpRequest() = default;

  void setMethod(std::int32_t value) { method = value; }
  void setUrl(std::string value) { url = std::move(value); }
  void setBody(std::vector<std::uint8_t> value) { body = std::move(value); }
  void setHeaders(Headers value) { headers = std::move(value); }
  void setTimeOut(std::int32_t value) { time_out = value; }
  void setHost(std::string value) { host = std::move(value); }
  void setIP(std::string value) { ip = std::move(value); }
  void setPort(std::int32_t value) { port = value; }
  void setSNI(bool value) { sni = value; }

  std::int32_t method = kMethodUnset;
  std::string url;
  std::vector<std::uint8_t> body;  // Not sent with a GET.
  std::uint64_t id;
  std::uint64_t reserved = 0;  // Never read here.
  Headers headers;
  std::int32_t time_out = 30'000;  // Milliseconds for the whole transfer. Below 1 counts as 1.
  std::string host;                // The host name behind a URL on an IP literal.
  std::string ip;                  // That IP literal.
  std::int32_t port = 443;         // The port that belongs to `ip`.
  bool sni = false;                // TLS must name `host` and check the certificate against it.
};

// A request together with its callback.
struct HttpRequestUser : HttpRequest {
  // The second argument is always 0. Called at most once, on the client's thread unless there is
  // none.
  using Callback = std::function<void(const std::shared_ptr<HttpResponseUser>&, std::int32_t)>;

  std::int32_t user_flag = 0;  // Never read here.
  Callback callback;
};

}  // namespace WQBASE::network
