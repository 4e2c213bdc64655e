#include "network/curl_requestor.h"

#include <system_error>
#include <utility>

#include "base/log.h"
#include "network/curl/curl_library.h"
#include "network/curl/transport_thread.h"

#ifndef TARVEL_VERIFY_TLS
#define TARVEL_VERIFY_TLS 0
#endif

namespace WQBASE::network {

namespace {

std::string trusted_authorities;  // See TrustAuthoritiesOf.

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
  auto requestor = CurlRequestor::Create(
      {.trust_store = trusted_authorities, .verify_always = TARVEL_VERIFY_TLS != 0});
  if (requestor == nullptr) ZO_LOG << "[http client]no transport, requests will be dropped";
  return requestor;
}

void TrustAuthoritiesOf(std::string pem_file) { trusted_authorities = std::move(pem_file); }

}  // namespace WQBASE::network
