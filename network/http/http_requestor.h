#pragma once

#include <functional>
#include <memory>

#include "network/http/http_request.h"
#include "network/http/http_response.h"

namespace WQBASE::network {

class HttpClientEx;

// The engine behind the client, one for each platform. Does transfers and has no policy.
class IHttpRequestor {
 public:
  using Completion = std::function<void(const std::shared_ptr<const HttpResponse>&)>;

  // Transfers that are in flight end here, without a call of their completion.
  virtual ~IHttpRequestor() = default;

  // Begins a transfer and returns. `completion` is called exactly once, on any thread; for a null
  // request before this returns.
  virtual void Send(std::shared_ptr<const HttpRequest> request, Completion completion) = 0;

  // The network has changed: what the engine knows of connections and addresses is worth nothing.
  // Transfers in flight go on.
  virtual void RetireConnections() = 0;
};

// The engine of this platform. While the system denies it what it needs, requests fail. Called on
// the client's thread.
std::shared_ptr<IHttpRequestor> CreateHttpRequestor(HttpClientEx& client);

}  // namespace WQBASE::network
