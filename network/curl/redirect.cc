#include "network/curl/redirect.h"

#include <utility>

namespace WQBASE::network {
namespace {

bool IsRedirect(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool IsUrlOf(const Hop& hop, const std::string& location) {
  return location == hop.asked_url || location == hop.address.url;
}

// Decides as browsers do.
bool BecomesGet(const Hop& hop, long status) {
  if (status == 303) return true;
  const bool is_post = hop.verb == "POST" || (hop.verb.empty() && hop.sends_body);
  return is_post && (status == 301 || status == 302);
}

}  // namespace

bool FollowRedirect(Hop& hop, long status, const Headers& answer, std::string& error) {
  const std::string* const location = answer.ValueOf("Location");
  if (!IsRedirect(status) || location == nullptr || IsUrlOf(hop, *location)) return false;
  auto address = ResolveReference(hop.address, *location, error);
  if (!address) return false;

  if (BecomesGet(hop, status)) {
    hop.verb = "GET";
    hop.sends_body = false;
    hop.headers.Remove("Content-Type");
  }
  if (!address->SameServer(hop.address)) {
    hop.headers.Remove("Authorization");
    hop.headers.Remove("Cookie");
  }
  hop.headers.Set("Host", address->host);
  hop.asked_url = address->url;
  hop.address = std::move(*address);
  return true;
}

}  // namespace WQBASE::network
