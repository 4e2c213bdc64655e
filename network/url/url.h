#pragma once

#include <tarvel/address_family.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "network/url/parsed_url.h"

namespace WQBASE::network {

inline constexpr std::int32_t kHighestPort = 65'535;

// A URL, which may be any string, split once as ParseUrl does it. Only the first 2 GiB are read. A
// plain value; the views that it returns are valid until it is changed or destroyed.
class Url {
 public:
  Url() = default;
  // Implicit, so that a string can be passed where a URL is expected.
  Url(std::string text);                             // NOLINT(google-explicit-constructor)
  Url(const char* text) : Url(std::string(text)) {}  // NOLINT(google-explicit-constructor)

  const std::string& text() const { return text_; }

  // In lower case. Empty unless it is a known scheme.
  std::string_view scheme() const { return scheme_; }
  bool is_https() const { return scheme_ == "https"; }
  bool is_web() const { return is_https() || scheme_ == "http"; }

  // As written; IPv6 keeps its brackets. Empty when missing.
  std::string_view host() const { return parsed_.host.In(text_); }
  // Whether the host is an IP literal.
  bool is_on_ip() const { return family_ != zo_net::kAddressFamilyAny; }
  // The family of the IP literal; kAddressFamilyAny for a name.
  zo_net::AddressFamily family() const { return family_; }

  bool has_port() const { return parsed_.port.present(); }
  // The port as atoi() reads it, so 0 when there is no number. One that is out of range becomes the
  // nearest number in range.
  std::int32_t port() const;

  // The URL with another host, or with another host and port. A URL without a host is returned
  // unchanged.
  [[nodiscard]] Url WithHost(std::string_view host) const;
  [[nodiscard]] Url WithServer(std::string_view host_and_port) const;
  // The text with "?" and `query`, or "&" when it has a "?", at its very end: behind a fragment
  // too.
  [[nodiscard]] Url WithQuery(std::string_view query) const;

  bool operator==(const Url& other) const { return text_ == other.text_; }

 private:
  Url WithReplaced(std::size_t end, std::string_view replacement) const;

  std::string text_;
  ParsedUrl parsed_;
  std::string_view scheme_;  // A view of a constant.
  zo_net::AddressFamily family_ = zo_net::kAddressFamilyAny;
};

// For one question about a URL; see Url. Pure functions, for any thread.

std::string GetScheme(std::string_view url);
// The scheme with its delimiter, such as "https://". Empty when the scheme is not known.
std::string GetSchemePrefix(std::string_view url);
bool IsHttps(std::string_view url);
// `with_port` appends ":" and the port, if the URL has one.
std::string GetHost(std::string_view url, bool with_port);
std::int32_t GetPort(std::string_view url);
// Appends the host to `host`, and sets `port` only when the URL has one.
void GetHostAndPort(std::string_view url, std::string& host, std::int32_t& port);

// Encodes a value for a query. Every byte becomes "%XX" except ASCII letters and digits; even "-",
// ".", "_" and "~" are encoded.
std::string UrlEncode(std::string_view text);

}  // namespace WQBASE::network
