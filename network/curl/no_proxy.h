#pragma once

#include <string_view>

namespace WQBASE::network {

// Whether the environment forbids a proxy for the IP literal `address`. The list is in the variable
// no_proxy, or in NO_PROXY when that is unset or empty.
//
// Reads the list as libcurl does: IP literals and networks such as 10.0.0.0/8, separated by commas
// or blanks; IPv6 may have brackets. A network of 0 bits counts as a single address. Host names are
// skipped, and so is "*", which libcurl applies to every host by itself.
bool NoProxyLists(std::string_view address);

}  // namespace WQBASE::network
