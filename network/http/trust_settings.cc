#include "network/http/trust_settings.h"

#include <utility>

#ifndef TARVEL_VERIFY_TLS
#define TARVEL_VERIFY_TLS 0
#endif

namespace WQBASE::network {
namespace {

std::string trusted_authorities;  // See TrustAuthoritiesOf.

}  // namespace

TrustSettings TrustOfNewEngines() {
  return {.trust_store = trusted_authorities, .verify_always = TARVEL_VERIFY_TLS != 0};
}

void TrustAuthoritiesOf(std::string pem_file) { trusted_authorities = std::move(pem_file); }

}  // namespace WQBASE::network
