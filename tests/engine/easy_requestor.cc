#include "tests/engine/easy_requestor.h"

#include <string>
#include <utility>

#include "network/curl/curl_library.h"
#include "tests/engine/easy_transfer.h"

namespace test_support {
namespace {

using namespace WQBASE::network;

// Not made const: see IHttpRequestor::Send.
std::shared_ptr<HttpResponse> Failure(std::string error_text) {
  auto response = std::make_shared<HttpResponse>();
  response->error_text = std::move(error_text);
  return response;
}

}  // namespace

EasyRequestor::EasyRequestor(TrustSettings trust) : trust_(std::move(trust)) {}

EasyRequestor::~EasyRequestor() {
  ending_ = true;
  for (const auto& thread : threads_) thread->Stop();
}

void EasyRequestor::Send(std::shared_ptr<const HttpRequest> request, Completion completion) {
  if (request == nullptr) return completion(Failure(""));
  const auto thread = std::make_shared<zo_base::BaseThread>(
      "easy_transfer", [this, request, completion]() mutable {  // Releases both with its end.
        CarryOut(*std::exchange(request, nullptr), std::exchange(completion, nullptr));
      });
  const std::string error = InitCurlLibrary() ? thread->StartIfPossible() : "No libcurl";
  if (!error.empty()) return completion(Failure(error));
  zo_base::MutexLock lock(lock_);
  JoinEndedThreads();
  threads_.push_back(thread);
}

void EasyRequestor::CarryOut(const HttpRequest& request, const Completion& completion) {
  const auto response =
      std::make_shared<HttpResponse>(EasyTransfer(request, trust_, ending_).Run());
  if (!ending_) completion(response);
}

void EasyRequestor::JoinEndedThreads() {
  std::erase_if(threads_, [](const auto& thread) {
    if (thread->IsRunning()) return false;
    thread->Stop();
    return true;
  });
}

}  // namespace test_support
