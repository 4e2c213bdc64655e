#pragma once

#include <string>

#include "network/curl/hop.h"

namespace WQBASE::network {

// The longest chain of redirects that a transfer follows.
inline constexpr int kMostRedirects = 20;

enum class Redirect {
  kNone,     // The answer is the end of the transfer.
  kFollow,   // The hop has been made into the next one.
  kRefused,  // It leads where a transfer may not go.
};

// What follows from an answer to `hop`. `target` is the location that it names, made absolute;
// empty when it names none. With kRefused `error` says why.
//
// An answer that names the URL it answers, as that was asked or with the host's name in it, ends
// the transfer. Otherwise the next request goes to the target and names its host; 303 turns it into
// a GET, 301 and 302 do so for a POST. Credentials don't travel to another server.
Redirect FollowRedirect(Hop& hop, long status, const HeaderList& answer, const std::string& target,
                        std::string& error);

}  // namespace WQBASE::network
