#pragma once

#include <optional>
#include <string>

namespace WQBASE::network {

// A URL as libcurl itself takes it apart, so that what is checked is what is fetched.
struct WebAddress {
  std::string url;  // Whole, with `host` as its host.
  bool https = false;
  std::string host;  // An IPv6 literal is in brackets.
  std::string port;  // Also when the URL names none.

  bool SameServer(const WebAddress& other) const {
    return https == other.https && host == other.host && port == other.port;
  }
};

// The parts of an http or https URL. Nothing for any other text; then `error` says why.
std::optional<WebAddress> ParseWebAddress(const std::string& url, std::string& error);

// The same with another host.
std::optional<WebAddress> WithHost(const WebAddress& address, const std::string& host,
                                   std::string& error);

}  // namespace WQBASE::network
