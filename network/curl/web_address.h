#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

#include "network/url/url.h"

namespace WQBASE::network {

// A URL as libcurl reads it, so that the URL that is checked is also the one that is fetched.
//
// The layers above read a URL by network/url/url.h. From that they decide whether the request goes
// to an IP address, and so whether the server is checked. Therefore a URL whose host libcurl reads
// differently is refused, and so is a host beyond ASCII, which libcurl would convert.
struct WebAddress {
  std::string url;  // The whole URL, with `host` in it.
  bool https = false;
  std::string host;  // An IP literal is in its usual form, IPv6 in brackets.
  std::string port;  // The default one when the URL has none.

  std::shared_ptr<CURLU> parsed;  // The same for libcurl, which need not parse `url` again.

  // Compares hosts without regard to case and to a dot at the end.
  bool SameServer(const WebAddress& other) const;
};

// These return nullopt, with the reason in `error`, unless the result is an http or https URL whose
// host both readers agree on.

std::optional<WebAddress> ParseWebAddress(const Url& url, std::string& error);

// The URL that a redirect of `base` leads to. `reference` may be relative; blanks in it are
// encoded.
std::optional<WebAddress> ResolveReference(const WebAddress& base, const std::string& reference,
                                           std::string& error);

// `address` with another host.
std::optional<WebAddress> WithHost(const WebAddress& address, const std::string& host,
                                   std::string& error);

}  // namespace WQBASE::network
