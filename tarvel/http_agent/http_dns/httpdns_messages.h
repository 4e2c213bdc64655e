#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/json/json11.h"
#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"
#include "tarvel/http_agent/http_dns/httpdns_server_list.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

// What HTTPDNS servers are asked, and what their answers mean. Function S tells of the servers
// themselves, function D of hosts. Answers are hostile: each is checked before it is read.
namespace zo_tarvel {

// One entry for each server, in their order. `service_host` is the name that they all stand for.
std::vector<UrlEntry> MakeSUrlEntries(const std::vector<HttpDNSServerInfo>& servers,
                                      const std::string& service_host);
std::vector<UrlEntry> MakeDUrlEntries(const std::vector<HttpDNSServerInfo>& servers,
                                      const std::string& service_host,
                                      const std::vector<std::string>& hosts);

// What is wrong with an answer goes to `error`, which otherwise stays as it is.
bool CheckSResponse(const std::string& body, std::string& error);
bool CheckDResponse(std::int32_t http_code, const std::string& body,
                    const std::vector<std::string>& hosts, std::string& error);

// A good answer of S.
struct HttpDNSServiceAnswer {
  std::string host;
  std::int64_t ttl_ms = 0;     // At least a second, 68 years at most.
  zo_base::json11::Json ipv4;  // As they stand in the answer.
  zo_base::json11::Json ipv6;
};
HttpDNSServiceAnswer ReadSResponse(const std::string& body);

// The hosts of a good answer of D, those that were asked for first; none of any other. Left out are
// hosts that nobody can ask for, those without an address, and of very many the rest.
std::vector<HttpDNSHostCache::Update> ReadDResponse(const std::string& body,
                                                    const std::vector<std::string>& asked);

}  // namespace zo_tarvel
