#pragma once

#include <tarvel/address_family.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "network/url/parsed_url.h"

namespace WQBASE::network {

inline constexpr std::int32_t kHighestPort = 65'535;

// A URL, which may be any string, split once; see ParseUrl for how. A plain value. Its views live
// as long as it does and stays unchanged. Of a string beyond 2 GiB only its first 2 GiB count.
class Url {
 public:
  Url() = default;
  // Implicit: whoever has a URL as a string may pass it on as one.
  Url(std::string text);                             // NOLINT(google-explicit-constructor)
  Url(const char* text) : Url(std::string(text)) {}  // NOLINT(google-explicit-constructor)

  const std::string& text() const { return text_; }

  // In lower case when it is a known one, else empty.
  std::string_view scheme() const { return scheme_; }
  bool is_https() const { return scheme_ == "https"; }
  bool is_web() const { return is_https() || scheme_ == "http"; }

  // As it is written, an IPv6 address in its brackets. Empty when there is none.
  std::string_view host() const { return parsed_.host.In(text_); }
  // Whether the host is an IP literal, and of which family; kAddressFamilyAny for a name.
  bool is_on_ip() const { return family_ != zo_net::kAddressFamilyAny; }
  zo_net::AddressFamily family() const { return family_; }

  bool has_port() const { return parsed_.port.present(); }
  // The port's leading number, 0 without one. As with atoi, blanks and a sign may come before it
  // and anything behind it; a number beyond the range of the result becomes the nearer end of that.
  std::int32_t port() const;

  // The URL with another host. Without a host of its own it stays as it is.
  Url WithHost(std::string_view host) const;
  // The URL with `server`, host and port, in the place of its host and its port.
  Url WithServer(std::string_view server) const;
  // The URL with `query` behind the one that it has.
  Url WithQuery(std::string_view query) const;

  bool operator==(const Url& other) const { return text_ == other.text_; }

 private:
  Url WithReplaced(std::size_t end, std::string_view replacement) const;

  std::string text_;
  ParsedUrl parsed_;
  std::string_view scheme_;  // Static.
  zo_net::AddressFamily family_ = zo_net::kAddressFamilyAny;
};

// Single questions about a URL; see Url. Pure functions, for any thread.

std::string GetScheme(std::string_view url);
// The scheme and what joins it to the host: "https://". Empty when the scheme is not known.
std::string GetSchemePrefix(std::string_view url);
bool IsHttps(std::string_view url);
// `with_port` adds ":" and the port if the URL has one.
std::string GetHost(std::string_view url, bool with_port);
std::string_view HostIn(std::string_view url);
std::int32_t GetPort(std::string_view url);
// Appends the host to `host`, and sets `port` only when the URL has one.
void GetHostAndPort(std::string_view url, std::string& host, std::int32_t& port);

// For a value in a query: all but ASCII letters and digits becomes "%XX", "-", ".", "_" and "~"
// included.
std::string UrlEncode(std::string_view text);

}  // namespace WQBASE::network
