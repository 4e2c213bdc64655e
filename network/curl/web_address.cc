#include "network/curl/web_address.h"

#include <curl/curl.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "base/text/strings.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

using UrlHandle = std::shared_ptr<CURLU>;

// As it was written, for all but the scheme and the host.
constexpr unsigned kParseFlags = CURLU_PATH_AS_IS | CURLU_NON_SUPPORT_SCHEME;

bool Accept(CURLUcode code, std::string& error) {
  if (code != CURLUE_OK) error = curl_url_strerror(code);
  return code == CURLUE_OK;
}

std::string Part(const UrlHandle& handle, CURLUPart part, unsigned flags = 0) {
  char* text = nullptr;
  if (curl_url_get(handle.get(), part, &text, flags) != CURLUE_OK) return {};
  const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
  return text;
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
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The host that a redirect to `reference` names; that of `base` when it names none.
std::string HostNamedBy(const std::string& reference, const WebAddress& base) {
  const Url url = reference.starts_with("//") ? "https:" + reference : reference;
  return url.scheme().empty() ? base.host : std::string(url.host());
}

// `own_reading` is the host by the reading of network/url/url.h.
std::optional<WebAddress> AddressOf(const UrlHandle& handle, std::string_view own_reading,
                                    std::string& error) {
  WebAddress address;
  const std::string scheme = Part(handle, CURLUPART_SCHEME);
  address.https = scheme == "https";
  if (!address.https && scheme != "http") {
    error = "Neither http nor https";
    return std::nullopt;
  }
  const std::string host = Part(handle, CURLUPART_HOST);
  // libcurl has decoded the host, and encodes a "%" that is left anew wherever it needs the URL.
  if (!SameHost(own_reading, host) || host.find('%') != std::string::npos) {
    error = "The host in the URL is ambiguous";
    return std::nullopt;
  }
  if (!IsAscii(host)) {
    error = "The host in the URL is not in ASCII";
    return std::nullopt;
  }
  address.host = CanonicalHost(host);
  if (address.host != host) {
    curl_url_set(handle.get(), CURLUPART_HOST, address.host.c_str(), 0);
  }
  address.url = Part(handle, CURLUPART_URL);
  address.port = Part(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  address.parsed = handle;
  return address;
}

}  // namespace

bool WebAddress::SameServer(const WebAddress& other) const {
  return https == other.https && port == other.port && SameHost(host, other.host);
}

std::optional<WebAddress> ParseWebAddress(const Url& url, std::string& error) {
  if (url.text().find('\0') != std::string::npos) {
    error = "NUL in the URL";
    return std::nullopt;
  }
  const UrlHandle handle(curl_url(), curl_url_cleanup);
  if (!Accept(curl_url_set(handle.get(), CURLUPART_URL, url.text().c_str(), kParseFlags), error)) {
    return std::nullopt;
  }
  return AddressOf(handle, url.host(), error);
}

std::optional<WebAddress> ResolveReference(const WebAddress& base, const std::string& reference,
                                           std::string& error) {
  const UrlHandle handle(curl_url_dup(base.parsed.get()), curl_url_cleanup);
  constexpr unsigned kFlags = kParseFlags | CURLU_URLENCODE | CURLU_ALLOW_SPACE;
  if (!Accept(curl_url_set(handle.get(), CURLUPART_URL, reference.c_str(), kFlags), error)) {
    return std::nullopt;
  }
  return AddressOf(handle, HostNamedBy(reference, base), error);
}

std::optional<WebAddress> WithHost(const WebAddress& address, const std::string& host,
                                   std::string& error) {
  const UrlHandle handle(curl_url(), curl_url_cleanup);
  if (host.find('\0') != std::string::npos) {
    error = "NUL in the host";
    return std::nullopt;
  }
  if (!Accept(curl_url_set(handle.get(), CURLUPART_URL, address.url.c_str(), kParseFlags), error) ||
      !Accept(curl_url_set(handle.get(), CURLUPART_HOST, CanonicalHost(host).c_str(), 0), error)) {
    return std::nullopt;
  }
  return AddressOf(handle, host, error);
}

}  // namespace WQBASE::network
