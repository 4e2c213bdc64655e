#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

#include "network/url/url.h"

namespace WQBASE::network {

// A URL as libcurl itself parses it, so that what is checked is what is fetched.
//
// The layers above decide by the reading of network/url/url.h whether a request goes to an IP
// address, and with that whether its server is checked. So a URL whose host libcurl reads
// differently is refused, and so is a host beyond ASCII, which libcurl would convert to another
// one.
struct WebAddress {
  std::string url;  // Whole, with `host` as its host.
  bool https = false;
  std::string host;  // An IP literal is in its usual form, IPv6 in brackets.
  std::string port;  // Also when the URL names none.

  std::shared_ptr<CURLU> parsed;  // The same, so that libcurl need not parse it again.

  // Hosts compare without regard to case and to a dot at the end.
  bool SameServer(const WebAddress& other) const;
};

// Each of these returns nothing unless the result is an http or https URL whose host has one
// reading; then `error` says why.

std::optional<WebAddress> ParseWebAddress(const Url& url, std::string& error);

// Where `base` redirects to: `reference` may be relative and may have blanks, which are encoded.
std::optional<WebAddress> ResolveReference(const WebAddress& base, const std::string& reference,
                                           std::string& error);

// `address` with another host.
std::optional<WebAddress> WithHost(const WebAddress& address, const std::string& host,
                                   std::string& error);

}  // namespace WQBASE::network
