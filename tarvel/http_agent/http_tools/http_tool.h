#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/thread/thread_info.h"
#include "network/http/http_client.h"
#include "network/url/url.h"

namespace zo_tarvel {

// One sub request, in the terms of the agent.
struct HttpRequest {
  // `code` is the HTTP status, 0 without an answer; `headers` are lines of name, ":" and value,
  // joined by "\r\n"; `body` is the error message of a failed transfer without a body. Its result
  // is ignored.
  using Callback =
      std::function<bool(std::int32_t code, const std::string& headers, const std::string& body)>;

  std::vector<std::string> headers;  // Each as name, ":" and value.
  std::int32_t time_out = 0;         // Milliseconds.
  std::int32_t type = 0;             // 0 is GET, anything else POST.
  std::string host;                  // The name behind an IP literal; empty for the URL's own.
  WQBASE::network::Url url;          // Its host may be an IP literal.
  Callback callback;
  std::string body;  // Sent with a POST only.
};

// Puts the agent's requests into the HTTP client's terms. It decides what an IP literal in a URL
// means: which name goes into the "Host" header, and whether TLS must name and check it.
//
// Threads: any. Stateless.
class HttpTool {
 public:
  // Hands the request over and returns. The callback is called once, if the client delivers: on the
  // thread of `caller_loop` if that still runs then, else on the client's thread. Without a client,
  // or a thread for it, the request fails.
  static void PostRequest(
      const HttpRequest& request,
      const std::weak_ptr<zo_base::ITaskLoop>& caller_loop = zo_base::GetCurrentTaskLoop());
};

// How this layer finds the HTTP client, which the environment above it owns. Set once, while the
// library is loaded. The getter returns null while there is no client.
using HttpClientGetter = std::shared_ptr<WQBASE::network::HttpClientEx> (*)();
void SetHttpClientGetter(HttpClientGetter getter);

}  // namespace zo_tarvel
