// Any text may come as a URL. Its components must lie inside it, in order, and all functions must
// agree on them. Each check below computes its result in another way than the code does.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "base/text/strings.h"
#include "network/curl/web_address.h"
#include "network/url/ip_address.h"
#include "network/url/parsed_url.h"
#include "network/url/url.h"

namespace {

using namespace WQBASE::network;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

void CheckComponents(const ParsedUrl& url, std::string_view text) {
  std::int64_t end = 0;
  for (const UrlComponent& component :
       {url.scheme, url.username, url.password, url.host, url.port, url.path, url.query, url.ref}) {
    if (component.length == -1) {
      Require(component.begin == 0, "a missing component is at 0");
      continue;
    }
    Require(component.length >= 0 && component.begin >= end, "components are in order");
    end = std::int64_t{component.begin} + component.length;
    Require(end <= static_cast<std::int64_t>(text.size()), "components lie in the text");
  }
  for (const UrlComponent& component : {url.host, url.port, url.path}) {
    Require(component.length != 0, "host, port and path are missing when empty");
  }
  Require(url.username.present() || !url.password.present(), "no password without a username");
  Require(url.scheme.present() == (text.find(':') != std::string_view::npos), "a colon, a scheme");
}

// Like atoi(), but a number that is out of range becomes the nearest in range.
std::int32_t NumberByStream(const std::string& text) {
  std::int32_t number = 0;
  std::istringstream(text) >> number;
  return number;
}

void CheckHostAndPort(const ParsedUrl& url, std::string_view text) {
  const std::string host = GetHost(text, false);
  Require(host == url.host.In(text), "the host is the component");
  const std::string port_text(url.port.In(text));
  const std::string with_port = url.port.present() ? host + ":" + port_text : host;
  Require(GetHost(text, true) == with_port, "the host with its port");
  Require(GetPort(text) == NumberByStream(port_text), "the port is the number");

  const Url value{std::string(text)};
  Require(value.host() == host && value.port() == GetPort(text) &&
              value.has_port() == url.port.present() && value.scheme() == GetScheme(text) &&
              value.is_on_ip() == IsIPAddress(host),
          "the value says the same");

  std::string appended = "x";
  std::int32_t port = 17;
  GetHostAndPort(text, appended, port);
  Require(appended == "x" + host, "the host is appended");
  Require(port == (url.port.present() ? GetPort(text) : 17), "only a present port is set");

  const std::string prefix = GetSchemePrefix(text);
  Require(prefix.empty() || prefix == GetScheme(text) + "://", "the prefix is the scheme's");
  Require(IsHttps(text) == (prefix == "https://"), "https by scheme and prefix");
}

// An address in the plain form must be the same one by both readings.
void CheckPlainAddress(std::string_view text, zo_net::AddressFamily family) {
  const IPAddressBytes plain = ParsePlainIPAddress(std::string(text), family);
  Require(plain.empty() || plain == ParseIPAddress(text), "another address");
}

void CheckAddress(std::string_view text) {
  const std::size_t size = ParseIPAddress(text).size();
  auto family = zo_net::kAddressFamilyAny;
  Require(GetIPFamily(text, family) == IsIPAddress(text), "an address has a family");
  Require(size == (family == zo_net::kAddressFamilyIPv4   ? 4
                   : family == zo_net::kAddressFamilyIPv6 ? 16
                                                          : 0),
          "the family has its size");
  CheckPlainAddress(text, zo_net::kAddressFamilyIPv4);
  CheckPlainAddress(text, zo_net::kAddressFamilyIPv6);
}

void CheckSplit(std::string_view text, std::string_view delimiters) {
  std::size_t length = 0;
  for (const std::string& piece : zo_base::Split(text, delimiters)) {
    Require(!piece.empty(), "no piece is empty");
    Require(piece.find_first_of(delimiters) == std::string::npos, "no delimiter in a piece");
    length += piece.size();
  }
  const auto kept = std::ranges::count_if(
      text, [&](char c) { return delimiters.find(c) == std::string_view::npos; });
  Require(length == static_cast<std::size_t>(kept), "all else is in the pieces");
}

void CheckReplaceAll(std::string_view text, std::string_view from) {
  std::string expected;
  std::size_t at = 0;
  for (std::size_t found = 0; !from.empty(); at = found + from.size()) {
    found = text.find(from, at);
    if (found == std::string_view::npos) break;
    expected.append(text.substr(at, found - at)).append("<>");
  }
  expected.append(text.substr(at));
  Require(zo_base::ReplaceAll(text, from, "<>") == expected, "a plain search replaces the same");
}

std::string LowerWithoutDot(std::string host) {
  zo_base::ToLower(host);
  if (host.size() > 1 && host.back() == '.') host.pop_back();
  return host;
}

void CheckHost(const WebAddress& address, const std::string& expected) {
  char* host = nullptr;
  char* zone = nullptr;
  Require(curl_url_get(address.parsed.get(), CURLUPART_HOST, &host, 0) == CURLUE_OK &&
              address.host == host,
          "libcurl goes to the host");
  curl_free(host);
  Require(curl_url_get(address.parsed.get(), CURLUPART_ZONEID, &zone, 0) == CURLUE_NO_ZONEID,
          "and to no zone of it");
  const bool is_ip = IsIPAddress(expected);
  Require(IsIPAddress(address.host) == is_ip, "an address goes to an address");
  Require(is_ip ? ParseIPAddress(address.host) == ParseIPAddress(expected)
                : LowerWithoutDot(address.host) == LowerWithoutDot(expected),
          "libcurl and we read the same host");
}

// libcurl must go to the host that the layers above read in the URL.
void CheckWebAddress(const std::string& text) {
  std::string error;
  if (const auto address = ParseWebAddress(text, error)) {
    Require(GetScheme(text) == (address->https ? "https" : "http"), "the same scheme");
    CheckHost(*address, GetHost(text, false));
  }
  static const auto base = ParseWebAddress("https://base.example/a/b?c", error);
  const std::string reference = text.c_str();  // A header has no NUL.
  std::string host = base->host;
  if (reference.starts_with("//")) host = GetHost("https:" + reference, false);
  if (!GetScheme(reference).empty()) host = GetHost(reference, false);
  if (const auto address = ResolveReference(*base, reference, error)) CheckHost(*address, host);
}

}  // namespace

// The first byte says how many of the last ones are the delimiters and what is to be replaced.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view all(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t length = std::min<std::size_t>(data[0] % 8, all.size());
  const std::string_view part = all.substr(all.size() - length);

  ParsedUrl url;
  ParseUrl(all.data(), static_cast<std::int32_t>(all.size()), &url);
  CheckComponents(url, all);
  CheckHostAndPort(url, all);
  CheckAddress(all);
  CheckAddress(url.host.In(all));
  CheckSplit(all, part);
  CheckReplaceAll(all, part);
  CheckWebAddress(std::string(all));
  return 0;
}
