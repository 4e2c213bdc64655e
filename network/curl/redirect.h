#pragma once

#include <string>

#include "network/curl/hop.h"

namespace WQBASE::network {

// The longest chain of redirects that a transfer follows.
inline constexpr int kMostRedirects = 20;

// Makes `hop` into the next one when its answer, with this status and these headers, is a redirect
// to be followed. Otherwise returns false; `error` says why when the redirect leads where a
// transfer may not go.
//
// An answer that names the URL it answers, as that was asked or with the host's name in it, ends
// the transfer. Otherwise the next request goes to the target and names its host; 303 turns it into
// a GET, 301 and 302 do so for a POST. Credentials don't travel to another server.
bool FollowRedirect(Hop& hop, long status, const Headers& answer, std::string& error);

}  // namespace WQBASE::network
