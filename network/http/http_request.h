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

// The verbs, as `method` of a request.
enum HttpMethod : std::int32_t {
  kMethodGet = 0,
  kMethodPost = 1,
  kMethodNone = 2,
  kMethodPut = 3,
  kMethodDelete = 4,
  kMethodUnset = 5,  // As every other value: the transport's own default.
};

// "GET", "POST", "PUT" or "DELETE"; empty for a method that names no verb.
const char* VerbOf(std::int32_t method);

// One transfer: what is asked of the transport.
//
// Threads: filled by one thread, then handed over and only read. Its id is taken on construction
// from one counter of the process; the first is 1.
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

  std::int32_t getMethod() const { return method; }
  const std::string& getUrl() const { return url; }
  const std::vector<std::uint8_t>& getBody() const { return body; }
  const Headers& getHeaders() const { return headers; }
  std::int32_t getTimeOut() const { return time_out; }
  const std::string& getHost() const { return host; }
  const std::string& getIP() const { return ip; }
  std::int32_t getPort() const { return port; }
  bool getSNI() const { return sni; }
  std::uint64_t getId() const { return id; }

  std::int32_t method = kMethodUnset;
  std::string url;
  std::vector<std::uint8_t> body;  // Not sent with a GET.
  std::uint64_t id;
  std::uint64_t reserved = 0;  // Carried only.
  Headers headers;
  std::int32_t time_out = 30'000;  // Milliseconds, for the whole transfer. Below 1 counts as 1.
  std::string host;                // The name that stands behind a URL on an IP literal.
  std::string ip;                  // That IP literal.
  std::int32_t port = 443;         // The port that goes with `ip`.
  bool sni = false;                // The URL is on an IP, but TLS must name and check `host`.
};

// What the logic sends: a request and whom to tell.
struct HttpRequestUser : HttpRequest {
  // The second argument is always 0. Called once at most, on the client's thread.
  using Callback = std::function<void(const std::shared_ptr<HttpResponseUser>&, std::int32_t)>;

  std::int32_t user_flag = 0;  // Carried only.
  Callback callback;
};

}  // namespace WQBASE::network
