#pragma once

#include <functional>
#include <memory>

#include "network/http/http_request.h"
#include "network/http/http_response.h"
#include "network/url/url.h"

namespace WQBASE::network {

class HttpClientEx;

// The transfer engine of the client; each platform has its own. It has no policy, and nothing above
// knows which library it uses. docs/porting.md says what an engine must do.
class IHttpRequestor {
 public:
  using Completion = std::function<void(const std::shared_ptr<const HttpResponse>&)>;

  // Ends the transfers in flight without calling their completions. None runs any more when it
  // returns.
  virtual ~IHttpRequestor() = default;

  // Begins a transfer and returns. Calls `completion` exactly once, on any thread; for a null
  // request it does so before it returns. The response is not made const, so that the last one who
  // shares it can move its texts.
  virtual void Send(std::shared_ptr<const HttpRequest> request, Completion completion) = 0;

  // The network has changed, so known connections and addresses are not used for new transfers.
  // Those in flight continue.
  virtual void RetireConnections() = 0;
};

// The engine of the platform defines these two functions. A program that defines them itself is
// linked with its own engine instead of the built-in one.

// Makes an engine, on the client's thread. Requests fail as long as the system denies the engine a
// thread or descriptors.
std::shared_ptr<IHttpRequestor> CreateHttpRequestor(HttpClientEx& client);

// Whether the engine takes the URL at all. It must not take one in which it reads another host than
// Url does. May be called from any thread, also before there is an engine.
[[nodiscard]] bool CanBeFetched(const Url& url);

}  // namespace WQBASE::network
