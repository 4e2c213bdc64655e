#include "network/curl/hop.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "network/curl/header_list.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace WQBASE::network {
namespace {

bool SendsBody(const HttpRequest& request) {
  return request.method != kMethodGet && !request.body.empty();
}

// The end of a port that begins at `at`, with its colon.
std::size_t EndOfPort(const std::string& url, std::size_t at) {
  if (at >= url.size() || url[at] != ':') return at;
  return std::min(url.find_first_not_of("0123456789", at + 1), url.size());
}

// The URL with its host replaced by the IP and the port that the request gives for it. A URL that
// is on the IP already stays as it is.
std::string UrlOnIP(const HttpRequest& request) {
  std::string url = request.url;
  // Where it is the URL's host: the same name may stand in the path or the query.
  const std::string_view host = HostIn(url);
  if (host.empty() || host != request.host) return url;
  const auto at = static_cast<std::size_t>(host.data() - url.data());
  const auto end = EndOfPort(url, at + host.size());
  return url.replace(at, end - at, CanonicalHost(request.ip) + ':' + std::to_string(request.port));
}

}  // namespace

std::optional<FirstHop> MakeFirstHop(const HttpRequest& request, std::string& error) {
  FirstHop first;
  Hop& hop = first.hop;
  hop.verb = VerbOf(request.method);
  hop.sends_body = SendsBody(request);
  hop.asked_url = request.sni ? UrlOnIP(request) : request.url;
  auto address = ParseWebAddress(hop.asked_url, error);
  if (!address) return std::nullopt;

  HeaderList headers = request.headers;
  if (request.sni && !request.host.empty()) {
    headers.insert(headers.begin(), {"Host", request.host});
    if (address->https) {
      auto named = WithHost(*address, request.host, error);
      if (!named) return std::nullopt;
      first.pinned = PinnedServer{*named, address->host};
      address = std::move(named);
    }
  }
  hop.headers = HeadersToSend(headers);
  hop.address = std::move(*address);
  return first;
}

}  // namespace WQBASE::network
