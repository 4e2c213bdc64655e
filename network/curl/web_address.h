#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

namespace WQBASE::network {

// A URL as libcurl itself takes it apart, so that what is checked is what is fetched.
struct WebAddress {
  std::string url;  // Whole, with `host` as its host.
  bool https = false;
  std::string host;  // An IPv6 literal is in brackets.
  std::string port;  // Also when the URL names none.

  std::shared_ptr<CURLU> parsed;  // The same, so that libcurl need not parse it again.

  // Hosts compare without regard to case and to a dot at the end.
  bool SameServer(const WebAddress& other) const;
};

// The parts of an http or https URL. Nothing for any other text; then `error` says why.
std::optional<WebAddress> ParseWebAddress(const std::string& url, std::string& error);

// The same with another host.
std::optional<WebAddress> WithHost(const WebAddress& address, const std::string& host,
                                   std::string& error);

}  // namespace WQBASE::network
