#include "tarvel/http_agent/http_dns/httpdns_messages.h"

#include <algorithm>
#include <set>
#include <utility>

#include "base/json/json11.h"
#include "base/process/clock.h"
#include "base/text/numbers.h"
#include "base/text/strings.h"
#include "network/http/http_response.h"
#include "network/url/host_rules.h"
#include "tarvel/environment/configuration/exception_data.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::CanBeAskedFor;
using WQBASE::network::CanBeHost;
using WQBASE::network::kHttpOk;
using WQBASE::network::LiteralsOf;
using zo_base::kMillisecondsPerSecond;
using zo_base::json11::Json;
using Servers = std::vector<HttpDNSServerInfo>;
using Texts = std::vector<std::string>;

constexpr char kSFormat[] = "%s://%s/httpdns/v2/s";
constexpr char kDFormat[] = "%s://%s/httpdns/v2/d?%s";
// The addresses of this host, listed for completeness. Nothing uses them.
[[maybe_unused]] constexpr char kLoopbackIPv4[] = "127.0.0.1";
[[maybe_unused]] constexpr char kLoopbackIPv6[] = "::1/128";
constexpr std::int32_t kGoodCode = 200;  // In the body, beside the HTTP status.
// With a shorter time to live the servers would be asked without a pause.
constexpr std::chrono::seconds kShortestServiceTtl{1};
constexpr std::int32_t kDefaultHostTtl = 3'600'000;

// `make_url(scheme, authority)` returns the URL.
template <class MakeUrl>
MultipleURLHttpRequest MakeRequest(_EnvironmentConfig& config, zo_net::AddressFamily family,
                                   const Servers& servers,
                                   const MultipleURLHttpRequestContext& context, MakeUrl make_url) {
  MultipleURLHttpRequest request;
  for (const auto& server : servers) {
    const char* const scheme = server.https ? "https" : "http";
    request.urls.push_back({servers.front().host, make_url(scheme, AuthorityOf(server).c_str())});
  }
  request.context = context;
  if (context.trace_id.empty()) request.context.trace_id = config.GenerateTraceId();
  request.time_out = config.single_request_timeout();
  request.multiple_time_out = config.single_request_prefail_timeout();
  request.use_http_dns_if_fail = false;  // A lookup must not depend on itself.
  request.address_family = family;
  return request;
}

bool Has(const Json& object, const std::string& key) {
  return object.object_items().count(key) != 0;
}

bool HasAddresses(const Json& list, zo_net::AddressFamily family) {
  return !LiteralsOf(family, TextsOf(list)).empty();
}

// Checks an answer of D but for its hosts, and sets `data` to the object of these.
std::string FindFaultInD(std::int32_t http_code, const std::string& body, Json& data) {
  if (http_code != kHttpOk) return "Httpdns -d query hosts`s ip response code != 200";
  if (body.empty()) return "Httpdns response error body is empty";
  std::string parse_error;
  const Json answer = Json::parse(body, parse_error);
  if (!parse_error.empty()) return "Httpdns response body parse error";
  if (!answer.is_object()) return "Httpdns response body(json) is not an object";
  if (!Has(answer, "code")) return "Httpdns response code(business) does not exist";
  const std::int32_t code = answer["code"].int_value();
  if (code != kGoodCode) {
    return "Httpdns response code(business) error code:" + std::to_string(code);
  }
  data = answer["data"];
  return Has(answer, "data") ? "" : "Httpdns response data(business) does not exist";
}

std::string FindFaultOfHost(const Json& data, const std::string& host) {
  if (!Has(data, host)) return host + " doman was not included in the response";
  const Json& said = data[host];
  if (!HasAddresses(said["ip"], zo_net::kAddressFamilyIPv4) &&
      !HasAddresses(said["ipv6"], zo_net::kAddressFamilyIPv6)) {
    return host + " both ipv4 and ipv6 are empty";
  }
  if (!Has(said, "ttl")) return host + " ttl was not included in the response";
  return said["ttl"].number_value() > 0 ? "" : host + " ttl <= 0 in the response";
}

std::string FindFaultInS(const Json& answer) {
  if (!answer.is_object()) return "Function S response is not in json format";
  // A host that cannot be in a URL would make the servers unreachable, also after the next start.
  if (!CanBeHost(answer["host"].string_value())) {
    return "Function S [host] in the response does not exist or the content is empty";
  }
  if (!answer["ttl"].is_number()) return "Function S [ttl] in the response does not exist";
  const bool has_list = Has(answer, "ipv4") || Has(answer, "ipv6");
  return has_list ? "" : "Function S [ipv4/ipv6] in the response does not exist";
}

// Adds what an answer of D says of one host, if that is usable and there is room.
void AddUpdate(const std::string& host, const Json& said, HttpDNSHostUpdates& updates) {
  if (updates.size() == HttpDNSHostCache::kMostUpdates || !CanBeAskedFor(host)) return;
  auto ipv4 = LiteralsOf(zo_net::kAddressFamilyIPv4, TextsOf(said["ip"]));
  auto ipv6 = LiteralsOf(zo_net::kAddressFamilyIPv6, TextsOf(said["ipv6"]));
  if (ipv4.empty() && ipv6.empty()) return;
  const std::int32_t ttl = Has(said, "ttl")
                               ? zo_base::SaturatedCast<std::int32_t>(said["ttl"].number_value() *
                                                                      kMillisecondsPerSecond)
                               : kDefaultHostTtl;
  if (ttl <= 0) return;  // It would end a good entry of a host that nobody has asked for.
  updates.push_back({host, std::move(ipv4), std::move(ipv6), ttl});
}

}  // namespace

MultipleURLHttpRequest MakeSRequest(_EnvironmentConfig& config, zo_net::AddressFamily family,
                                    const Servers& servers) {
  MultipleURLHttpRequestContext context;
  context.business = config.business_type();
  context.exception_category = GetExceptionCategory(kServiceCodeHttpDns);
  const auto make_url = [](const char* scheme, const char* authority) {
    return zo_base::StringFormat(kSFormat, scheme, authority);
  };
  MultipleURLHttpRequest request = MakeRequest(config, family, servers, context, make_url);
  request.headers = MakeContextHeaders(context);
  return request;
}

MultipleURLHttpRequest MakeDRequest(_EnvironmentConfig& config, zo_net::AddressFamily family,
                                    const Servers& servers, const Texts& hosts,
                                    const MultipleURLHttpRequestContext& context) {
  const std::string query = "domain=" + zo_base::Join(hosts, ",");
  const auto make_url = [&query](const char* scheme, const char* authority) {
    return zo_base::StringFormat(kDFormat, scheme, authority, query.c_str());
  };
  return MakeRequest(config, family, servers, context, make_url);
}

std::optional<HttpDNSServiceAnswer> CheckSResponse(const std::string& body, std::string& error) {
  std::string parse_error;
  const Json json = Json::parse(body, parse_error);
  error = FindFaultInS(json);
  if (!error.empty()) return std::nullopt;
  const std::chrono::seconds ttl(zo_base::SaturatedCast<std::int32_t>(json["ttl"].number_value()));
  return HttpDNSServiceAnswer{json["host"].string_value(), std::max(ttl, kShortestServiceTtl),
                              json["ipv4"], json["ipv6"]};
}

std::optional<HttpDNSHostUpdates> CheckDResponse(std::int32_t http_code, const std::string& body,
                                                 const Texts& hosts, std::string& error) {
  Json data;
  error = FindFaultInD(http_code, body, data);
  for (const std::string& host : hosts) {
    if (error.empty()) error = FindFaultOfHost(data, host);
  }
  if (!error.empty()) return std::nullopt;
  HttpDNSHostUpdates updates;
  const std::set<std::string> first(hosts.begin(), hosts.end());
  for (const std::string& host : first) AddUpdate(host, data[host], updates);
  for (const auto& [host, said] : data.object_items()) {
    if (!first.contains(host)) AddUpdate(host, said, updates);
  }
  return updates;
}

}  // namespace zo_tarvel
