#include "network/curl/hop.h"

#include <utility>

#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace WQBASE::network {
namespace {

// The URL to fetch. A request with `sni` whose URL names the host goes to its IP and port instead.
Url UrlOf(const HttpRequest& request) {
  Url url = request.url;
  if (!request.sni || url.host() != request.host) return url;
  return url.WithServer(CanonicalHost(request.ip) + ':' + std::to_string(request.port));
}

}  // namespace

std::optional<FirstHop> MakeFirstHop(const HttpRequest& request, std::string& error) {
  FirstHop first;
  Hop& hop = first.hop;
  hop.verb = VerbOf(request.method);
  hop.sends_body = request.method != kMethodGet && !request.body.empty();
  const Url url = UrlOf(request);
  hop.asked_url = url.text();
  auto address = ParseWebAddress(url, error);
  if (!address) return std::nullopt;

  Headers headers;
  if (request.sni && !request.host.empty()) {
    headers.Add("Host", request.host);
    if (address->https) {
      auto named = WithHost(*address, request.host, error);
      if (!named) return std::nullopt;
      first.pinned = PinnedServer{*named, address->host};
      address = std::move(named);
    }
  }
  for (const auto& [name, value] : request.headers) headers.Add(name, value);
  hop.headers = headers.Sendable();
  hop.address = std::move(*address);
  return first;
}

}  // namespace WQBASE::network
