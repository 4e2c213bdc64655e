#include <string>
#include <utility>

#include "network/curl/web_address.h"
#include "tests/engine/easy_requestor.h"
#include "tests/engine/engine.h"

// All that a platform defines for an engine of its own, and what the tests need to make one.

namespace WQBASE::network {

std::shared_ptr<IHttpRequestor> CreateHttpRequestor(HttpClientEx&) {
  return test_support::MakeEngine(TrustOfNewEngines());
}

bool CanBeFetched(const Url& url) {
  std::string error;
  return ParseWebAddress(url, error).has_value();
}

}  // namespace WQBASE::network

namespace test_support {

std::shared_ptr<WQBASE::network::IHttpRequestor> MakeEngine(WQBASE::network::TrustSettings trust) {
  return std::make_shared<EasyRequestor>(std::move(trust));
}

bool KeepsConnections() { return false; }

}  // namespace test_support
