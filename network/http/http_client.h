#pragma once

#include <functional>
#include <memory>

#include "base/thread/task_thread.h"
#include "network/http/http_requestor.h"

namespace WQBASE::network {

class HttpClientBase {
 public:
  virtual ~HttpClientBase() = default;
};

// Sends requests and hands responses over, on a thread of its own. One per environment.
//
// Threads: `send`, `RetireConnections` and `onHttpResponse` from any; they only post. Callbacks run
// on the client's thread, one at a time, and must not block it.
// Ownership: held by a shared_ptr, see BaseThread; owns its requestor. Requests that are queued or
// in flight when the thread stops get no callback.
class HttpClientEx : public HttpClientBase, public zo_base::TaskThread {
 public:
  using RequestorFactory = std::function<std::shared_ptr<IHttpRequestor>(HttpClientEx&)>;

  explicit HttpClientEx(RequestorFactory create_requestor = CreateHttpRequestor);

  // Makes the requestor. To be connected with SIG_InternalBegin, so that it comes before all tasks.
  void init();

  void send(std::shared_ptr<HttpRequestUser> request);
  // See IHttpRequestor.
  void RetireConnections();

  // After Stop: ends the transfers in flight, without a callback.
  void ReleaseRequestor();

  // What the requestor's completion calls, on its thread.
  void onHttpResponse(const std::weak_ptr<HttpClientEx>& client,
                      const std::shared_ptr<HttpRequestUser>& request,
                      const std::shared_ptr<const HttpResponse>& response);

 private:
  void SendOnThread(const std::weak_ptr<HttpClientEx>& client,
                    const std::shared_ptr<HttpRequestUser>& request);

  const RequestorFactory create_requestor_;
  // Not locked: written by `init`, before any task, and read on the client's thread only; released
  // when that has ended.
  std::shared_ptr<IHttpRequestor> requestor_;
};

}  // namespace WQBASE::network
