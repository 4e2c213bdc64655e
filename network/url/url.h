#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Questions about a URL, which may be any text; see ParseUrl for how it is read. Of a text beyond
// 2 GiB only its first 2 GiB count. Pure functions, for any thread.
namespace WQBASE::network {

inline constexpr std::int32_t kHighestPort = 65'535;

// The scheme in lower case when it is a known one, else empty.
std::string GetScheme(std::string_view url);

// GetScheme and what joins it to the host: "https://". Empty when the scheme is not known.
std::string GetSchemePrefix(std::string_view url);

bool IsHttps(std::string_view url);

// The host as it is written, an IPv6 address in its brackets. `with_port` adds ":" and the port if
// the URL has one.
std::string GetHost(std::string_view url, bool with_port);

// The same without the port, where it stands in `url`. Empty, and nowhere, when there is none.
std::string_view HostIn(std::string_view url);

// The port's leading number, 0 without one. As with atoi, blanks and a sign may come before it and
// anything behind it; a number beyond the range of the result becomes the nearer end of that.
std::int32_t GetPort(std::string_view url);

// Appends the host, without port, to `host`. Sets `port` as GetPort reads it, and leaves it alone
// when the URL has none.
void GetHostAndPort(std::string_view url, std::string& host, std::int32_t& port);

// For a value in a query: all but ASCII letters and digits becomes "%XX", "-", ".", "_" and "~"
// included.
std::string UrlEncode(std::string_view text);

}  // namespace WQBASE::network
