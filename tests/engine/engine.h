#pragma once

#include <memory>

#include "network/http/http_requestor.h"
#include "network/http/trust_settings.h"

namespace test_support {

// Makes the engine that this program of tests is linked with.
std::shared_ptr<WQBASE::network::IHttpRequestor> MakeEngine(WQBASE::network::TrustSettings trust);

// Whether that engine uses a connection for several transfers.
bool KeepsConnections();

}  // namespace test_support
