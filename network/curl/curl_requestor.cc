#include "network/curl/curl_requestor.h"

#include <system_error>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/log/log.h"
#include "network/curl/curl_library.h"
#include "network/curl/transport_thread.h"

#ifndef TARVEL_VERIFY_TLS
#define TARVEL_VERIFY_TLS 0
#endif

namespace WQBASE::network {

namespace {

std::string trusted_authorities;  // See TrustAuthoritiesOf.

std::shared_ptr<const HttpResponse> Failure(std::string error_text) {
  const auto response = std::make_shared<HttpResponse>();
  response->error_text = std::move(error_text);
  return response;
}

// Stands in while the system denies the engine what it needs, and tries again at each request. One
// that comes too early fails at once: its caller waits for an answer.
//
// Threads and ownership: as the interface says; owns the engine that it makes.
class LateRequestor final : public IHttpRequestor {
 public:
  explicit LateRequestor(TrustSettings trust) : trust_(std::move(trust)) {}

  void Send(std::shared_ptr<const HttpRequest> request, Completion completion) override {
    if (const auto engine = Engine()) {
      engine->Send(std::move(request), std::move(completion));
    } else {
      completion(Failure("No thread or descriptor for the transport"));
    }
  }
  void RetireConnections() override {
    zo_base::MutexLock lock(lock_);
    if (engine_) engine_->RetireConnections();
  }

 private:
  std::shared_ptr<CurlRequestor> Engine() {
    zo_base::MutexLock lock(lock_);
    if (engine_ == nullptr) engine_ = CurlRequestor::Create(trust_);
    return engine_;
  }

  const TrustSettings trust_;
  zo_base::_thread_recursive_mutex lock_;
  std::shared_ptr<CurlRequestor> engine_ ZO_GUARDED_BY(lock_);
};

}  // namespace

std::shared_ptr<CurlRequestor> CurlRequestor::Create(TrustSettings trust) {
  if (!InitCurlLibrary()) return nullptr;
  auto thread = std::make_shared<TransportThread>();
  if (!thread->usable()) return nullptr;
  try {
    thread->Start();
  } catch (const std::system_error&) {
    return nullptr;
  }
  return std::make_shared<CurlRequestor>(std::move(thread), std::move(trust));
}

CurlRequestor::CurlRequestor(std::shared_ptr<TransportThread> thread, TrustSettings trust)
    : thread_(std::move(thread)), trust_(std::move(trust)) {}

CurlRequestor::~CurlRequestor() { thread_->Stop(); }

void CurlRequestor::Send(std::shared_ptr<const HttpRequest> request, Completion completion) {
  if (request == nullptr) {
    completion(std::make_shared<HttpResponse>());
    return;
  }
  thread_->Submit(std::make_unique<Transfer>(std::move(request), std::move(completion), trust_));
}

void CurlRequestor::RetireConnections() { thread_->RetireConnections(); }

std::shared_ptr<IHttpRequestor> CreateHttpRequestor(HttpClientEx&) {
  const TrustSettings trust{.trust_store = trusted_authorities,
                            .verify_always = TARVEL_VERIFY_TLS != 0};
  if (auto requestor = CurlRequestor::Create(trust)) return requestor;
  ZO_LOG << "[http client]no transport, requests will fail until there is one";
  return std::make_shared<LateRequestor>(trust);
}

void TrustAuthoritiesOf(std::string pem_file) { trusted_authorities = std::move(pem_file); }

}  // namespace WQBASE::network
