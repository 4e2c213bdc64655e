#include "network/curl/hop.h"

#include <utility>

#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace WQBASE::network {
namespace {

bool SendsBody(const HttpRequest& request) {
  return request.method != kMethodGet && !request.body.empty();
}

// The URL with its host replaced by the IP and the port that the request gives for it. A URL that
// is on the IP already stays as it is.
Url UrlOnIP(const HttpRequest& request) {
  const Url url = request.url;
  if (url.host() != request.host) return url;
  return url.WithServer(CanonicalHost(request.ip) + ':' + std::to_string(request.port));
}

}  // namespace

std::optional<FirstHop> MakeFirstHop(const HttpRequest& request, std::string& error) {
  FirstHop first;
  Hop& hop = first.hop;
  hop.verb = VerbOf(request.method);
  hop.sends_body = SendsBody(request);
  const Url url = request.sni ? UrlOnIP(request) : Url(request.url);
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
