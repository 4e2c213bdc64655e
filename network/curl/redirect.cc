#include "network/curl/redirect.h"

#include <utility>

#include "network/curl/header_list.h"

namespace WQBASE::network {
namespace {

bool IsRedirect(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool NamesItself(const Hop& hop, const HeaderList& answer) {
  const std::string* location = FindHeader(answer, "Location");
  return location != nullptr && (*location == hop.asked_url || *location == hop.address.url);
}

// As browsers do.
bool BecomesGet(const Hop& hop, long status) {
  if (status == 303) return true;
  const bool is_post = hop.verb == "POST" || (hop.verb.empty() && hop.sends_body);
  return is_post && (status == 301 || status == 302);
}

}  // namespace

Redirect FollowRedirect(Hop& hop, long status, const HeaderList& answer, const std::string& target,
                        std::string& error) {
  if (!IsRedirect(status) || target.empty() || NamesItself(hop, answer)) return Redirect::kNone;
  auto address = ParseWebAddress(target, error);
  if (!address) return Redirect::kRefused;

  if (BecomesGet(hop, status)) {
    hop.verb = "GET";
    hop.sends_body = false;
    RemoveHeader(hop.headers, "Content-Type");
  }
  if (!address->SameServer(hop.address)) {
    RemoveHeader(hop.headers, "Authorization");
    RemoveHeader(hop.headers, "Cookie");
  }
  SetHeader(hop.headers, "Host", address->host);
  hop.asked_url = target;
  hop.address = std::move(*address);
  return Redirect::kFollow;
}

}  // namespace WQBASE::network
