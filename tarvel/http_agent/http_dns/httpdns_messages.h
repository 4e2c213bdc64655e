#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/json/json11.h"
#include "tarvel/environment/configuration/environment_config.h"
#include "tarvel/http_agent/http_dns/httpdns_host_cache.h"
#include "tarvel/http_agent/http_dns/httpdns_server_list.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

// What HTTPDNS servers are asked, and what their answers mean. Function S lists the servers
// themselves, function D the addresses of hosts. An answer is hostile: it is read only as far as it
// passes the checks.
namespace zo_tarvel {

// The requests, without their callbacks, to each server in its order. The first server names the
// service, for all of them.
MultipleURLHttpRequest MakeSRequest(_EnvironmentConfig& config, zo_net::AddressFamily family,
                                    const std::vector<HttpDNSServerInfo>& servers);
MultipleURLHttpRequest MakeDRequest(_EnvironmentConfig& config, zo_net::AddressFamily family,
                                    const std::vector<HttpDNSServerInfo>& servers,
                                    const std::vector<std::string>& hosts,
                                    const MultipleURLHttpRequestContext& context);

// Sets both callbacks, so that each body is parsed once. `check(index, code, url, body, error)`
// returns an optional: what a good answer says, or nothing and `error`. `done(success, body, said)`
// gets the optional of the last answer, with which the request ends; the two never run at once.
template <class Check, class Done>
void SetCallbacks(MultipleURLHttpRequest& request, Check check, Done done) {
  std::string error;
  const auto said = std::make_shared<decltype(check(0, 0, error, error, error))>();
  request.check_callback = [said, check](auto index, auto code, const auto& url, const auto&,
                                         const auto& body, auto) {
    MultipleURLHttpRequest::CheckCallbackResult verdict;
    *said = check(index, code, url, body, verdict.error_message);
    verdict.success = said->has_value();
    verdict.add_statistic = !verdict.success;
    return verdict;
  };
  request.result_callback = [said, done](bool, bool success, const auto&, const auto& body) {
    done(success, body, *said);
  };
}

// A good answer of S.
struct HttpDNSServiceAnswer {
  std::string host;
  std::chrono::milliseconds ttl{};  // At least a second, 68 years at most.
  zo_base::json11::Json ipv4;       // Both lists are unchecked.
  zo_base::json11::Json ipv6;
};
using HttpDNSHostUpdates = std::vector<HttpDNSCacheEntry>;

// Each returns what a good answer says. For any other it sets `error`.
std::optional<HttpDNSServiceAnswer> CheckSResponse(const std::string& body, std::string& error);
// The `hosts` that were asked for come first in the result. Left out are names that cannot be asked
// for, hosts without an address, and all beyond kMostUpdates.
std::optional<HttpDNSHostUpdates> CheckDResponse(std::int32_t http_code, const std::string& body,
                                                 const std::vector<std::string>& hosts,
                                                 std::string& error);

}  // namespace zo_tarvel
