#pragma once

#include <string>

#include "network/curl/hop.h"

namespace WQBASE::network {

// Changes `hop` into the next one when its answer is a redirect to be followed. Otherwise returns
// false; when the target is one that a transfer must not fetch, `error` says why.
//
// A redirect to the hop's own URL, in either form, ends the transfer. Any other leads to a request
// that names the target's host. After 303 its verb is GET, and after 301 or 302 too when it was
// POST. Credentials are not sent to another server.
[[nodiscard]] bool FollowRedirect(Hop& hop, long status, const Headers& answer, std::string& error);

}  // namespace WQBASE::network
