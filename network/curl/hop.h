#pragma once

#include <optional>
#include <string>

#include "network/curl/web_address.h"
#include "network/http/http_request.h"

namespace WQBASE::network {

// One exchange with one server. A transfer has one hop, and one more for each redirect. A plain
// value.
struct Hop {
  std::string verb;  // Empty for the default of the transport.
  bool sends_body = false;
  std::string asked_url;  // Absolute; with the IP in it for a request with `sni`.
  WebAddress address;     // With the server's name where that is known.
  Headers headers;
};

// For a request on an IP literal that names its host in TLS: connections to the server `name` go to
// the address `literal`, at the same port.
struct PinnedServer {
  WebAddress name;
  std::string literal;
};

// How a transfer begins.
struct FirstHop {
  Hop hop;
  std::optional<PinnedServer> pinned;
};

// Returns nullopt, with the reason in `error`, when the request can't be sent. Logs the headers
// that it drops.
std::optional<FirstHop> MakeFirstHop(const HttpRequest& request, std::string& error);

}  // namespace WQBASE::network
