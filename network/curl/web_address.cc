#include "network/curl/web_address.h"

#include <algorithm>
#include <string_view>

#include "base/text/strings.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

using UrlHandle = std::shared_ptr<CURLU>;

// libcurl may change only the scheme and the host to their usual form.
constexpr unsigned kParseFlags = CURLU_PATH_AS_IS | CURLU_NON_SUPPORT_SCHEME;

UrlHandle Owned(CURLU* handle) { return {handle, curl_url_cleanup}; }

std::string GetPart(const UrlHandle& handle, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(handle.get(), part, &text, flags) != CURLUE_OK) return {};
  const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
  return text;
}

// The reason for a failure; empty for none.
std::string SetPart(const UrlHandle& handle, CURLUPart part, const std::string& text,
                    unsigned flags) {
  if (text.find('\0') != std::string::npos) {
    return part == CURLUPART_HOST ? "NUL in the host" : "NUL in the URL";
  }
  const CURLUcode code = curl_url_set(handle.get(), part, text.c_str(), flags);
  return code == CURLUE_OK ? "" : curl_url_strerror(code);
}

bool SameHost(std::string_view a, std::string_view b) {
  const auto normalized = [](std::string_view text) {
    std::string host = CanonicalHost(text);
    zo_base::ToLower(host);
    if (host.size() > 1 && host.ends_with('.')) host.pop_back();  // "." is a host, "" is none.
    return host;
  };
  return normalized(a) == normalized(b);
}

bool IsAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The reason to refuse the URL in `handle`, whose host is `host` for libcurl and `expected` for
// url.h. libcurl has decoded it, and encodes each "%" that is left when it writes the URL.
std::string Objection(const UrlHandle& handle, std::string_view host, std::string_view expected) {
  const std::string scheme = GetPart(handle, CURLUPART_SCHEME);
  if (scheme != "http" && scheme != "https") return "Neither http nor https";
  if (!SameHost(expected, host) || host.find('%') != std::string_view::npos) {
    return "The host in the URL is ambiguous";
  }
  return IsAscii(host) ? "" : "The host in the URL is not in ASCII";
}

std::optional<WebAddress> AddressOf(const UrlHandle& handle, std::string_view expected_host,
                                    std::string& error) {
  const std::string host = GetPart(handle, CURLUPART_HOST);
  error = Objection(handle, host, expected_host);
  if (!error.empty()) return std::nullopt;

  WebAddress address;
  address.https = GetPart(handle, CURLUPART_SCHEME) == "https";
  address.host = CanonicalHost(host);
  if (address.host != host) {
    curl_url_set(handle.get(), CURLUPART_HOST, address.host.c_str(), 0);
  }
  address.url = GetPart(handle, CURLUPART_URL);
  address.port = GetPart(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  address.parsed = handle;
  return address;
}

// The host of a redirect's target, by the reading of url.h.
std::string HostNamedBy(const std::string& reference, const WebAddress& base) {
  const Url url = reference.starts_with("//") ? "https:" + reference : reference;
  return url.scheme().empty() ? base.host : std::string(url.host());
}

}  // namespace

bool WebAddress::SameServer(const WebAddress& other) const {
  return https == other.https && port == other.port && SameHost(host, other.host);
}

std::optional<WebAddress> ParseWebAddress(const Url& url, std::string& error) {
  const UrlHandle handle = Owned(curl_url());
  error = SetPart(handle, CURLUPART_URL, url.text(), kParseFlags);
  return error.empty() ? AddressOf(handle, url.host(), error) : std::nullopt;
}

std::optional<WebAddress> ResolveReference(const WebAddress& base, const std::string& reference,
                                           std::string& error) {
  constexpr unsigned kFlags = kParseFlags | CURLU_URLENCODE | CURLU_ALLOW_SPACE;
  const UrlHandle handle = Owned(curl_url_dup(base.parsed.get()));
  error = SetPart(handle, CURLUPART_URL, reference, kFlags);
  return error.empty() ? AddressOf(handle, HostNamedBy(reference, base), error) : std::nullopt;
}

std::optional<WebAddress> WithHost(const WebAddress& address, const std::string& host,
                                   std::string& error) {
  const UrlHandle handle = Owned(curl_url_dup(address.parsed.get()));
  error = SetPart(handle, CURLUPART_HOST, CanonicalHost(host), 0);
  return error.empty() ? AddressOf(handle, host, error) : std::nullopt;
}

}  // namespace WQBASE::network
