#include "business/tarvel_lbs/update_request.h"

#include "base/log/log.h"
#include "base/text/strings.h"
#include "network/http/http_requestor.h"
#include "network/http/http_response.h"
#include "network/url/url.h"
#include "tarvel/environment/configuration/exception_data.h"

namespace zo_tarvel {
namespace {

namespace network = WQBASE::network;
using network::Url;

// How the server numbers the families.
std::int32_t NetworkType(std::int32_t family) {
  if (family == kEMAddressFamilyIPv4) return 0;
  return family == kEMAddressFamilyIPv6 ? 1 : 2;
}

// The name behind IP literals: that of the first URL, if it has one.
std::string FallbackHost(const Url& first_url, const std::string& def_lbs_host) {
  const bool has_name = !first_url.is_on_ip() && network::CanBeFetched(first_url);
  return has_name ? std::string(first_url.host()) : def_lbs_host;
}

bool IsOfOtherFamily(const Url& url, zo_net::AddressFamily family) {
  return family != zo_net::kAddressFamilyAny && url.is_on_ip() && url.family() != family;
}

// Nullopt when the URL can't be asked over https.
std::optional<Url> AsHttps(const Url& url) {
  if (url.is_https()) return url;
  if (url.has_port()) return std::nullopt;
  Url https = zo_base::ReplaceAll(url.text(), "http://", "https://");
  if (!https.is_https()) return std::nullopt;  // The scheme is written in capitals.
  return https;
}

MultipleURLHttpRequestContext ContextOf(const std::string& token,
                                        const _EnvironmentConfig& config) {
  MultipleURLHttpRequestContext context;
  context.business = config.business_type();
  context.app_key = token;
  context.sdk_version = config.business_version();
  context.sdk_version_code = config.sv();
  context.protocol_version = config.pv();
  context.client_type = config.client_type();
  context.trace_id = config.GenerateTraceId();
  context.exception_category = GetExceptionCategory(kServiceCodeLBS);
  return context;
}

}  // namespace

MultipleURLHttpRequest UpdateRequest::ToHttpRequest(const std::vector<std::string>& urls,
                                                    const std::string& account_id,
                                                    const LBSSettings& settings,
                                                    const _EnvironmentConfig& config) const {
  std::string query;
  const auto add_unless_empty = [&query](const char* key, const std::string& value) {
    if (!value.empty()) query.append(key).append(network::UrlEncode(value)).append("&");
  };
  add_unless_empty("k=", token);
  add_unless_empty("id=", account_id);
  query.append("sv=").append(std::to_string(config.sv()));
  query.append("&pv=").append(std::to_string(config.pv()));
  query.append("&tp=").append(std::to_string(config.client_type()));
  query.append("&networkType=").append(std::to_string(NetworkType(settings.addr_family)));

  MultipleURLHttpRequest request;
  const bool only_https = config.only_https_supported();
  request.urls = MakeEntries(urls, query, settings.def_lbs_host, only_https);
  if (request.urls.empty()) {
    request.urls = MakeEntries({settings.lbs_main_addr}, query, settings.def_lbs_host, only_https);
  }
  request.context = ContextOf(token, config);
  request.headers = MakeContextHeaders(request.context);
  request.address_family = family;
  request.time_out = settings.sreq_timeout_ms;
  request.multiple_time_out = settings.sreq_pred_fail_time_ms;
  return request;
}

std::vector<UrlEntry> UpdateRequest::MakeEntries(const std::vector<std::string>& urls,
                                                 const std::string& query,
                                                 const std::string& def_lbs_host,
                                                 bool only_https) const {
  const std::string fallback_host = FallbackHost(urls.front(), def_lbs_host);
  std::vector<UrlEntry> entries;
  for (const Url address : urls) {
    if (!address.is_web() || IsOfOtherFamily(address, family)) continue;
    const auto url = only_https ? AsHttps(address) : address;
    if (!url) continue;
    Url whole = url->WithQuery(query);
    if (!CanBeFetched(whole)) continue;
    const std::string host(address.host());
    entries.push_back({address.is_on_ip() ? fallback_host : host, std::move(whole)});
  }
  return entries;
}

UpdateRequest::Verdict UpdateRequest::Check(std::int32_t index, const RequestErrorRecord& record,
                                            const std::string& body,
                                            const std::shared_ptr<_EnvironmentConfig>& config,
                                            const Collector& collector) {
  if (config == nullptr) {
    ZO_LOG << "[lbs] Check response env == nullptr";
    return {.stop = true, .error_message = {}};
  }
  const std::string current = config->GetBusinessToken();
  const std::string message =
      "Check response current business token :" + current + " request business token:" + token;
  ZO_LOG << "[lbs] " << message;
  if (current != token) return {.stop = true, .error_message = message};
  ZO_LOG << "[lbs] Check response index:" << index << " code:" << record.code;
  const auto told = collector.Get();
  if (told.function) told.function(told.user, &record);
  if (record.code != network::kHttpOk) {
    ZO_LOG << "[lbs] Check response res = false";
    return {.add_statistic = true, .error_message = "Check response code != 200"};
  }
  auto parsed = ParseLBSAnswer(body);
  const bool success = parsed.error.empty();
  if (success) answer = std::move(parsed.answer);
  return {.success = success, .error_message = std::move(parsed.error)};
}

}  // namespace zo_tarvel
