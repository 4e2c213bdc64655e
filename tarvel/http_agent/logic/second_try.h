#pragma once

#include <string>
#include <vector>

#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

// The second try of a request that has failed on all its URLs. Pure functions, for any thread.
namespace zo_tarvel {

// The hosts of the URLs that are names, each once, in the order of the URLs.
std::vector<std::string> NamedHostsOf(const MultipleURLHttpRequest& request);

// The request with the addresses in the place of the names: by host, then by address, then in the
// order of its URLs. It has no URL if no address is known. It never leads to a third try.
MultipleURLHttpRequest OnAddresses(MultipleURLHttpRequest request,
                                   const HostCacheResult& addresses);

}  // namespace zo_tarvel
