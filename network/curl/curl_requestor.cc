#include "network/curl/curl_requestor.h"

#include <string>
#include <utility>

#include "base/log/log.h"
#include "network/curl/curl_library.h"
#include "network/curl/transfer.h"
#include "network/curl/transport_thread.h"
#include "network/curl/web_address.h"

namespace WQBASE::network {
namespace {

std::shared_ptr<const HttpResponse> Failure(std::string error_text) {
  const auto response = std::make_shared<HttpResponse>();
  response->error_text = std::move(error_text);
  return response;
}

}  // namespace

CurlRequestor::CurlRequestor(TrustSettings trust) : trust_(std::move(trust)) {
  if (StartedThread() == nullptr) {
    ZO_LOG << "[http client]no transport, requests will fail until there is one";
  }
}

CurlRequestor::~CurlRequestor() {
  if (thread_) thread_->Stop();
}

std::shared_ptr<TransportThread> CurlRequestor::StartedThread() {
  zo_base::MutexLock lock(lock_);
  if (thread_ == nullptr && InitCurlLibrary()) {
    auto thread = std::make_shared<TransportThread>();
    if (thread->usable() && thread->StartIfPossible().empty()) thread_ = std::move(thread);
  }
  return thread_;
}

void CurlRequestor::Send(std::shared_ptr<const HttpRequest> request, Completion completion) {
  if (request == nullptr) return completion(Failure(""));
  const auto thread = StartedThread();
  if (thread == nullptr) return completion(Failure("No thread or descriptor for the transport"));
  thread->Submit(std::make_unique<Transfer>(std::move(request), std::move(completion), trust_));
}

void CurlRequestor::RetireConnections() {
  zo_base::MutexLock lock(lock_);
  if (thread_) thread_->RetireConnections();
}

std::shared_ptr<IHttpRequestor> CreateHttpRequestor(HttpClientEx&) {
  return std::make_shared<CurlRequestor>(TrustOfNewEngines());
}

bool CanBeFetched(const Url& url) {
  std::string error;
  return ParseWebAddress(url, error).has_value();
}

}  // namespace WQBASE::network
