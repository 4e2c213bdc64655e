#include "network/curl/web_address.h"

#include <curl/curl.h>

#include <memory>

#include "network/text.h"

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

std::string Normalized(std::string host) {
  ToLower(host);
  if (host.ends_with('.')) host.pop_back();
  return host;
}

std::optional<WebAddress> AddressOf(const UrlHandle& handle, std::string& error) {
  WebAddress address;
  const std::string scheme = Part(handle, CURLUPART_SCHEME);
  address.https = scheme == "https";
  if (!address.https && scheme != "http") {
    error = "Neither http nor https";
    return std::nullopt;
  }
  address.url = Part(handle, CURLUPART_URL);
  address.host = Part(handle, CURLUPART_HOST);
  address.port = Part(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  address.parsed = handle;
  return address;
}

}  // namespace

bool WebAddress::SameServer(const WebAddress& other) const {
  return https == other.https && port == other.port && Normalized(host) == Normalized(other.host);
}

std::optional<WebAddress> ParseWebAddress(const std::string& url, std::string& error) {
  if (url.find('\0') != std::string::npos) {
    error = "NUL in the URL";
    return std::nullopt;
  }
  const UrlHandle handle(curl_url(), curl_url_cleanup);
  if (!Accept(curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), kParseFlags), error)) {
    return std::nullopt;
  }
  return AddressOf(handle, error);
}

std::optional<WebAddress> WithHost(const WebAddress& address, const std::string& host,
                                   std::string& error) {
  const UrlHandle handle(curl_url(), curl_url_cleanup);
  if (host.find('\0') != std::string::npos) {
    error = "NUL in the host";
    return std::nullopt;
  }
  if (!Accept(curl_url_set(handle.get(), CURLUPART_URL, address.url.c_str(), kParseFlags), error) ||
      !Accept(curl_url_set(handle.get(), CURLUPART_HOST, host.c_str(), 0), error)) {
    return std::nullopt;
  }
  return AddressOf(handle, error);
}

}  // namespace WQBASE::network
