#include <utility>

#include "network/curl/curl_requestor.h"
#include "tests/engine/engine.h"

namespace test_support {

std::shared_ptr<WQBASE::network::IHttpRequestor> MakeEngine(WQBASE::network::TrustSettings trust) {
  return std::make_shared<WQBASE::network::CurlRequestor>(std::move(trust));
}

bool KeepsConnections() { return true; }

}  // namespace test_support
