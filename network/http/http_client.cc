#include "network/http/http_client.h"

#include <atomic>
#include <cstring>
#include <utility>

namespace WQBASE::network {
namespace {

// Readers of the texts use them as C strings.
void CutAtNul(std::string& text) { text.resize(std::strlen(text.c_str())); }

void Deliver(const std::shared_ptr<HttpRequestUser>& request,
             const std::shared_ptr<const HttpResponse>& response) {
  if (request == nullptr || !request->callback) return;
  const auto result = std::make_shared<HttpResponseUser>();
  HttpResponse& copy = *result;
  if (response == nullptr) {
    copy.error_text = "The transport has given no response";
  } else if (response.use_count() == 1) {  // Nobody else reads it, see IHttpRequestor::Send.
    // use_count() is relaxed. This pairs with the release in which the last other owner gave it up,
    // so that its reads come before the move.
    std::atomic_thread_fence(std::memory_order_acquire);
    copy = std::move(const_cast<HttpResponse&>(*response));
  } else {
    copy = *response;
  }
  result->request = request.get();
  CutAtNul(result->body_text);
  CutAtNul(result->error_text);
  const auto callback = request->callback;  // It may replace itself in the request.
  callback(result, 0);
}

}  // namespace

HttpClientEx::HttpClientEx() : TaskThread("tarvel_http_client") {}

void HttpClientEx::init() {
  AssertOnThread();
  requestor_ = CreateHttpRequestor(*this);
}

void HttpClientEx::send(std::shared_ptr<HttpRequestUser> request) {
  // A strong reference in a task that never runs would keep the queue alive that holds the task.
  const std::weak_ptr<HttpClientEx> client = shared_from_this<HttpClientEx>();
  PostTask([this, client, request = std::move(request)] {
    AssertOnThread();
    if (requestor_ == nullptr) return;
    requestor_->Send(request, ToWeakClosure([this, client, request](const auto& response) {
                       onHttpResponse(client, request, response);
                     }));
  });
}

void HttpClientEx::RetireConnections() {
  PostTask([this] {
    AssertOnThread();
    if (requestor_) requestor_->RetireConnections();
  });
}

void HttpClientEx::ReleaseRequestor() {
  ZO_ASSERT(!IsRunning());
  requestor_.reset();
}

void HttpClientEx::onHttpResponse(const std::weak_ptr<HttpClientEx>& client,
                                  const std::shared_ptr<HttpRequestUser>& request,
                                  const std::shared_ptr<const HttpResponse>& response) {
  const auto living = client.lock();
  if (living == nullptr || !living->IsRunning() || living->IsStopping()) return;
  living->PostTask([request, response] { Deliver(request, response); });
}

}  // namespace WQBASE::network
