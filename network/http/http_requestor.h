#pragma once

#include <functional>
#include <memory>

#include "network/http/http_request.h"
#include "network/http/http_response.h"

namespace WQBASE::network {

class HttpClientEx;

// The transfer engine of the client; each platform has its own. It has no policy.
class IHttpRequestor {
 public:
  using Completion = std::function<void(const std::shared_ptr<const HttpResponse>&)>;

  // Ends the transfers in flight without calling their completions.
  virtual ~IHttpRequestor() = default;

  // Begins a transfer and returns. Calls `completion` exactly once, on any thread; for a null
  // request it does so before it returns. The response is not made const, so that the last one who
  // shares it can move its texts.
  virtual void Send(std::shared_ptr<const HttpRequest> request, Completion completion) = 0;

  // The network has changed, so known connections and addresses are not used for new transfers.
  // Those in flight continue.
  virtual void RetireConnections() = 0;
};

// Makes the engine of this platform, on the client's thread. Requests fail as long as the system
// denies the engine a thread or descriptors.
std::shared_ptr<IHttpRequestor> CreateHttpRequestor(HttpClientEx& client);

}  // namespace WQBASE::network
