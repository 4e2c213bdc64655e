#include "network/http/http_client.h"

#include <utility>

namespace WQBASE::network {
namespace {

// The text up to its first NUL, as C code would read it.
std::string CutAtNul(const std::string& text) { return {text.c_str()}; }

void HandOver(const std::shared_ptr<HttpRequestUser>& request, const HttpResponse& response) {
  if (request == nullptr || !request->callback) return;
  const auto callback = request->callback;
  const auto result = std::make_shared<HttpResponseUser>();
  result->request = request.get();
  result->headers = response.headers;
  result->status = response.status;
  result->body = response.body;
  result->body_text = CutAtNul(response.body_text);
  result->error_text = CutAtNul(response.error_text);
  result->success = response.success;
  callback(result, 0);
}

}  // namespace

HttpClientEx::HttpClientEx(RequestorFactory create_requestor)
    : TaskThread("tarvel_http_client"), create_requestor_(std::move(create_requestor)) {}

void HttpClientEx::init() { requestor_ = create_requestor_(*this); }

void HttpClientEx::send(std::shared_ptr<HttpRequestUser> request) {
  // Not a strong reference: a task that never runs would keep its own queue alive.
  const std::weak_ptr<HttpClientEx> client = shared_from_this<HttpClientEx>();
  PostTask([this, client, request = std::move(request)] { SendOnThread(client, request); });
}

void HttpClientEx::SendOnThread(const std::weak_ptr<HttpClientEx>& client,
                                const std::shared_ptr<HttpRequestUser>& request) {
  if (requestor_ == nullptr) return;
  requestor_->Send(request, ToWeakClosure([this, client, request](const auto& response) {
                     onHttpResponse(client, request, response);
                   }));
}

void HttpClientEx::RetireConnections() {
  PostTask([this] {
    if (requestor_) requestor_->RetireConnections();
  });
}

void HttpClientEx::ReleaseRequestor() { requestor_.reset(); }

void HttpClientEx::onHttpResponse(const std::weak_ptr<HttpClientEx>& client,
                                  const std::shared_ptr<HttpRequestUser>& request,
                                  const std::shared_ptr<const HttpResponse>& response) {
  const auto living = client.lock();
  if (living == nullptr || !living->IsRunning() || living->IsStopping()) return;
  living->PostTask([request, response] { HandOver(request, *response); });
}

}  // namespace WQBASE::network
