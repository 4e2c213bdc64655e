#include "tarvel/http_agent/http_dns/httpdns_messages.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "base/json/json_texts.h"
#include "base/process/steady_time.h"
#include "base/text/saturated_cast.h"
#include "base/text/strings.h"
#include "network/http/http_response.h"
#include "network/url/host_rules.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::CanBeAskedFor;
using WQBASE::network::CanBeHost;
using WQBASE::network::kHttpOk;
using WQBASE::network::LiteralsOf;
using zo_base::kMillisecondsPerSecond;
using zo_base::json11::Json;

constexpr char kSFormat[] = "%s://%s/httpdns/v2/s";
constexpr char kDFormat[] = "%s://%s/httpdns/v2/d?%s";
// Of this host. Named with the others, and used by nothing.
[[maybe_unused]] constexpr char kLoopbackIPv4[] = "127.0.0.1";
[[maybe_unused]] constexpr char kLoopbackIPv6[] = "::1/128";
constexpr std::int32_t kGoodCode = 200;  // Of the business, in the body.
// A list that is said to live shorter would have its servers asked without a pause.
constexpr std::int64_t kShortestServiceTtl = 1'000;
constexpr std::int32_t kDefaultHostTtl = 3'600'000;

const char* SchemeOf(const HttpDNSServerInfo& server) { return server.https ? "https" : "http"; }

bool Has(const Json& object, const std::string& key) {
  return object.object_items().count(key) != 0;
}

bool HoldsAnAddress(const Json& list, zo_net::AddressFamily family) {
  return !LiteralsOf(family, TextsOf(list)).empty();
}

const char* FindFaultOfHost(const Json& host) {
  if (!HoldsAnAddress(host["ip"], zo_net::kAddressFamilyIPv4) &&
      !HoldsAnAddress(host["ipv6"], zo_net::kAddressFamilyIPv6)) {
    return " both ipv4 and ipv6 are empty";
  }
  if (!Has(host, "ttl")) return " ttl was not included in the response";
  if (!(host["ttl"].number_value() > 0)) return " ttl <= 0 in the response";
  return nullptr;
}

std::string FindFaultOfAnswer(const Json& answer, const std::string& parse_error) {
  if (!parse_error.empty()) return "Httpdns response body parse error";
  if (!answer.is_object()) return "Httpdns response body(json) is not an object";
  if (!Has(answer, "code")) return "Httpdns response code(business) does not exist";
  const std::int32_t code = answer["code"].int_value();
  if (code != kGoodCode) {
    return "Httpdns response code(business) error code:" + std::to_string(code);
  }
  return Has(answer, "data") ? "" : "Httpdns response data(business) does not exist";
}

std::string FindFaultOfHosts(const Json& data, const std::vector<std::string>& hosts) {
  for (const std::string& host : hosts) {
    if (!Has(data, host)) return host + " doman was not included in the response";
    if (const char* const fault = FindFaultOfHost(data[host])) return host + fault;
  }
  return std::string();
}

std::string FindFaultInD(std::int32_t http_code, const std::string& body,
                         const std::vector<std::string>& hosts) {
  if (http_code != kHttpOk) return "Httpdns -d query hosts`s ip response code != 200";
  if (body.empty()) return "Httpdns response error body is empty";
  std::string parse_error;
  const Json answer = Json::parse(body, parse_error);
  const std::string fault = FindFaultOfAnswer(answer, parse_error);
  return fault.empty() ? FindFaultOfHosts(answer["data"], hosts) : fault;
}

const char* FindFaultInS(const Json& answer) {
  if (!answer.is_object()) return "Function S response is not in json format";
  // One that can't be in a URL would make the servers unreachable, also after the next start.
  if (!CanBeHost(answer["host"].string_value())) {
    return "Function S [host] in the response does not exist or the content is empty";
  }
  if (!answer["ttl"].is_number()) return "Function S [ttl] in the response does not exist";
  if (!Has(answer, "ipv4") && !Has(answer, "ipv6")) {
    return "Function S [ipv4/ipv6] in the response does not exist";
  }
  return nullptr;
}

// Seconds, beyond the range of the result cut to it.
std::int32_t ToMilliseconds(const Json& ttl) {
  return zo_base::SaturatedCast<std::int32_t>(ttl.number_value() * kMillisecondsPerSecond);
}

// What a member of an answer of D says, if that can be used and there is room.
void AddUpdate(const std::string& host, const Json& said,
               std::vector<HttpDNSHostCache::Update>& updates) {
  if (updates.size() == HttpDNSHostCache::kMostUpdates || !CanBeAskedFor(host)) return;
  auto ipv4 = LiteralsOf(zo_net::kAddressFamilyIPv4, TextsOf(said["ip"]));
  auto ipv6 = LiteralsOf(zo_net::kAddressFamilyIPv6, TextsOf(said["ipv6"]));
  if (ipv4.empty() && ipv6.empty()) return;
  const std::int32_t ttl = Has(said, "ttl") ? ToMilliseconds(said["ttl"]) : kDefaultHostTtl;
  if (ttl <= 0) return;  // It would end a good entry that nobody has asked about.
  updates.push_back({host, std::move(ipv4), std::move(ipv6), ttl});
}

}  // namespace

std::vector<UrlEntry> MakeSUrlEntries(const std::vector<HttpDNSServerInfo>& servers,
                                      const std::string& service_host) {
  std::vector<UrlEntry> entries;
  entries.reserve(servers.size());
  for (const auto& server : servers) {
    entries.push_back({service_host, zo_base::StringFormat(kSFormat, SchemeOf(server),
                                                           AuthorityOf(server).c_str())});
  }
  return entries;
}

std::vector<UrlEntry> MakeDUrlEntries(const std::vector<HttpDNSServerInfo>& servers,
                                      const std::string& service_host,
                                      const std::vector<std::string>& hosts) {
  const std::string query = "domain=" + zo_base::Join(hosts, ",");
  std::vector<UrlEntry> entries;
  entries.reserve(servers.size());
  for (const auto& server : servers) {
    entries.push_back(
        {service_host, zo_base::StringFormat(kDFormat, SchemeOf(server),
                                             AuthorityOf(server).c_str(), query.c_str())});
  }
  return entries;
}

bool CheckSResponse(const std::string& body, std::string& error) {
  std::string parse_error;
  const char* const fault = FindFaultInS(Json::parse(body, parse_error));
  if (fault != nullptr) error = fault;
  return fault == nullptr;
}

bool CheckDResponse(std::int32_t http_code, const std::string& body,
                    const std::vector<std::string>& hosts, std::string& error) {
  const std::string fault = FindFaultInD(http_code, body, hosts);
  if (!fault.empty()) error = fault;
  return fault.empty();
}

HttpDNSServiceAnswer ReadSResponse(const std::string& body) {
  std::string error;
  const Json json = Json::parse(body, error);
  HttpDNSServiceAnswer answer;
  answer.host = json["host"].string_value();
  const std::int64_t seconds = zo_base::SaturatedCast<std::int32_t>(json["ttl"].number_value());
  answer.ttl_ms = std::max(seconds * kMillisecondsPerSecond, kShortestServiceTtl);
  answer.ipv4 = json["ipv4"];
  answer.ipv6 = json["ipv6"];
  return answer;
}

std::vector<HttpDNSHostCache::Update> ReadDResponse(const std::string& body,
                                                    const std::vector<std::string>& asked) {
  std::string error;
  const Json json = Json::parse(body, error);
  std::vector<HttpDNSHostCache::Update> updates;
  if (json["code"].int_value() != kGoodCode) return updates;
  const Json::object& members = json["data"].object_items();
  const std::set<std::string_view> first(asked.begin(), asked.end());
  for (const std::string_view host : first) {
    const auto member = members.find(std::string(host));
    if (member != members.end()) AddUpdate(member->first, member->second, updates);
  }
  for (const auto& [host, said] : members) {
    if (first.count(host) == 0) AddUpdate(host, said, updates);
  }
  return updates;
}

}  // namespace zo_tarvel
