#pragma once

#include <optional>
#include <string>

#include "network/curl/web_address.h"
#include "network/http/http_request.h"

namespace WQBASE::network {

// One exchange with one server: a transfer has one, and one more for each redirect. A plain value.
struct Hop {
  std::string verb;  // Empty: the default of the transport.
  bool sends_body = false;
  std::string asked_url;  // As the logic or the redirect wrote it.
  WebAddress address;     // Where it goes by name.
  Headers headers;
};

// For a request on an IP literal whose TLS is to name `host`: connections to `name` go to
// `literal`, at the same port.
struct PinnedServer {
  WebAddress name;
  std::string literal;
};

// The first hop of a request, and where it is pinned to.
struct FirstHop {
  Hop hop;
  std::optional<PinnedServer> pinned;
};

// Nothing when the request can't be sent; then `error` says why. Logs the headers that it drops.
std::optional<FirstHop> MakeFirstHop(const HttpRequest& request, std::string& error);

}  // namespace WQBASE::network
