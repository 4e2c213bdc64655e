#pragma once

#include <memory>

#include "base/thread/task_thread.h"
#include "network/http/http_requestor.h"

namespace WQBASE::network {

class HttpClientBase {
 public:
  virtual ~HttpClientBase() = default;
};

// Sends requests and delivers their responses. There is one for each environment.
//
// Threads: `send`, `RetireConnections` and `onHttpResponse` may be called from any thread; they
// only post. Callbacks run on the client's own thread, one at a time, and must not block it.
// Ownership: held by a shared_ptr, see BaseThread; owns its requestor. Requests that are queued or
// in flight when the thread stops get no callback.
class HttpClientEx : public HttpClientBase, public zo_base::TaskThread {
 public:
  HttpClientEx();

  // Makes the requestor. Connect this with SIG_InternalBegin, so that it runs before all tasks.
  void init();

  void send(std::shared_ptr<HttpRequestUser> request);
  // See IHttpRequestor.
  void RetireConnections();

  // Ends the transfers in flight without a callback. Call this after Stop.
  void ReleaseRequestor();

  // Called by the requestor's completion, on the requestor's thread.
  void onHttpResponse(const std::weak_ptr<HttpClientEx>& client,
                      const std::shared_ptr<HttpRequestUser>& request,
                      const std::shared_ptr<const HttpResponse>& response);

 private:
  // Not locked: used on the client's thread only, and released after its end.
  std::shared_ptr<IHttpRequestor> requestor_;
};

}  // namespace WQBASE::network
