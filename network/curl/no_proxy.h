#pragma once

#include <string_view>

namespace WQBASE::network {

// Whether connections to the IP literal `address` must not go through a proxy, by the environment
// variable no_proxy, or NO_PROXY when that is unset or empty.
//
// As libcurl reads it: IP literals and networks such as 10.0.0.0/8, with commas or blanks between
// them; IPv6 may have brackets. A network of 0 bits counts as a single address. Host names in the
// list don't matter here, nor does "*", which libcurl heeds for every host.
bool NoProxyLists(std::string_view address);

}  // namespace WQBASE::network
