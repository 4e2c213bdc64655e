#pragma once

#include <string>

namespace WQBASE::network {

// Which servers an engine trusts. A plain value.
struct TrustSettings {
  std::string trust_store;     // PEM file of authorities; empty for the system's.
  bool verify_always = false;  // Checks every https server, not only for requests with `sni`.
};

// What an engine that is made now must trust: the authorities of TrustAuthoritiesOf, and whether
// this build verifies every server.
TrustSettings TrustOfNewEngines();

// Sets which certificate authorities later engines trust: those in a PEM file, or the system's for
// an empty path. Meant for a developer's programs and own servers. Call it from one thread at a
// time.
void TrustAuthoritiesOf(std::string pem_file);

}  // namespace WQBASE::network
