#include "tarvel/http_agent/http_dns/httpdns_sdk.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "base/json/json11.h"
#include "base/log/log.h"
#include "base/process/filesystem.h"
#include "base/text/read_number.h"
#include "base/text/text_of.h"
#include "base/text/utf8.h"
#include "network/http/http_response.h"
#include "network/url/host_rules.h"
#include "tarvel/environment/configuration/deployment.h"
#include "tarvel/environment/configuration/exception_data.h"
#include "tarvel/http_agent/http_dns/httpdns_messages.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::CanBeHost;
using WQBASE::network::kHttpOk;
using zo_base::TextOf;
using zo_base::json11::Json;

// Keys of the server cache file.
constexpr char kHost[] = "host";
constexpr char kIPv4[] = "ipv4";
constexpr char kIPv6[] = "ipv6";
constexpr char kTtl[] = "ttl";
constexpr char kUpdatedAt[] = "updated_at";
constexpr char kExpiredTime[] = "expired_time";

// A list of servers as text: 32 of them, which is all that are used, with the longest names and
// room to spare.
constexpr std::size_t kLongestList = 64UL * 1024;

// Whether the server cache file has a use for the entry.
bool CanBeUsed(const std::string& key, const std::string& value) {
  const std::string_view keys[] = {kHost, kIPv4, kIPv6, kTtl, kUpdatedAt, kExpiredTime};
  return std::find(std::begin(keys), std::end(keys), key) != std::end(keys) &&
         value.size() <= kLongestList;
}

// When the list of servers is asked for, in milliseconds. A list that ends within the slack counts
// as ended; one that lives for weeks is looked at every day all the same.
constexpr std::int64_t kLongestFirstDelay = 86'400'000;
constexpr std::int64_t kLongestDelay = std::numeric_limits<std::int32_t>::max();  // Of a timer.
constexpr std::int64_t kExpirySlack = 2'000;
constexpr std::int32_t kDelayOfExpired = 50;
// A failure is tried again after as many minutes as there were failures in a row, up to five.
constexpr std::int32_t kRetryUnit = 60'000;
constexpr std::int32_t kMostRetryUnits = 5;

Json ParseList(const std::string& text) {
  std::string error;
  return Json::parse(text, error);
}

template <class Addresses>
std::string ServersText(const Addresses& addresses) {
  Json::array servers;
  for (const char* address : addresses) {
    servers.push_back(Json::object{{"host", address}, {"port", 443}, {"https", true}});
  }
  return Json(std::move(servers)).dump();
}

MultipleURLHttpRequest::CheckCallbackResult Verdict(bool success, std::string error) {
  MultipleURLHttpRequest::CheckCallbackResult verdict;
  verdict.success = success;
  verdict.add_statistic = !success;
  verdict.error_message = std::move(error);
  return verdict;
}

MultipleURLHttpRequest::CheckCallbackResult CheckS(std::int32_t index, std::int32_t code,
                                                   const std::string& url,
                                                   const std::string& body) {
  ZO_LOG << "[http dns] Check response index:" << index << " url:" << url << " code:" << code;
  if (code != kHttpOk) {
    ZO_LOG << "[http dns] Check response(S) res = false";
    return Verdict(false, "Function S response code != 200");
  }
  std::string error;
  if (CheckSResponse(body, error)) {
    ZO_LOG << "[http dns] Check response(S) res = true";
    return Verdict(true, "");
  }
  ZO_LOG << "[http dns] Check response(S) res = false error_message:" << error;
  return Verdict(false, error);
}

}  // namespace

HttpDNSManager::HttpDNSManager(zo_base::WallClock wall_clock)
    : TaskThread("http dns manager"),
      wall_clock(wall_clock),
      server_cache_file(CanBeUsed),
      host_cache_file([this](const std::string& host, const std::string& text) {
        return host_cache.Load(host, text, this->wall_clock());
      }),
      timer(GetTaskLoop()) {}

void HttpDNSManager::MakeRequestHeaders() {
  request_headers.clear();
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) return;
  request_headers = {
      "X-VELDRIN-BUSINESS:" + config->business_type(),
      "X-VELDRIN-SDKVER:" + config->business_version() + "_" +
          std::to_string(config->client_type()) + "_" + std::to_string(config->sv()),
      "X-VELDRIN-APPKEY:" + config->GetBusinessToken(),
  };
}

bool HttpDNSManager::Init() {
  MakeRequestHeaders();
  try {
    Start();
  } catch (const std::system_error& error) {
    ZO_LOG << "http dns manager thread failed:" << error.what();
    return false;
  }
  LoadServerCache();
  LoadCache();
  InitInterfaceAddress();
  return true;
}

std::string HttpDNSManager::Directory() {
  const auto config = GetEnvironmentConfig();
  return config == nullptr ? std::string() : config->appdata_path() + "http_dns/";
}

bool HttpDNSManager::OnlyHttps() {
  const auto config = GetEnvironmentConfig();
  return config != nullptr && config->only_https_supported();
}

void HttpDNSManager::LoadServerCache() {
  const std::string directory = Directory();
  if (directory.empty()) return;
  std::error_code ignored;  // A directory that can't be made shows in the file that isn't there.
  zo_base::filesystem::create_directories(directory, ignored);
  server_cache_file.Load(directory + "http_server_cache.data");
  const bool valid =
      CanBeHost(server_cache_file.Get(kHost)) && !server_cache_file.Get(kIPv4).empty();
  if (!valid) WriteDefaultServers();
}

void HttpDNSManager::WriteDefaultServers() {
  const std::string now = std::to_string(wall_clock());
  server_cache_file.Set(kHost, kDefaultHttpDNSHost);
  server_cache_file.Set(kIPv4, ServersText(kDefaultHttpDNSIPv4));
  server_cache_file.Set(kIPv6, ServersText(kDefaultHttpDNSIPv6));
  server_cache_file.Set(kTtl, "3600");
  server_cache_file.Set(kUpdatedAt, now);
  server_cache_file.Set(kExpiredTime, now);
  server_cache_file.Save();
}

void HttpDNSManager::InitInterfaceAddress() {
  const bool only_https = OnlyHttps();
  server_list.SetServers(server_cache_file.Get(kHost),
                         ReadServers(ParseList(server_cache_file.Get(kIPv4)), only_https),
                         ReadServers(ParseList(server_cache_file.Get(kIPv6)), only_https));
  PostTask(Weakly([](auto& self) { self.ScheduleFirstReload(); }));
}

void HttpDNSManager::ScheduleFirstReload() {
  const std::int64_t now = wall_clock();
  // No time before 1970: then the difference can't overflow.
  const std::int64_t expired_time = std::max<std::int64_t>(
      zo_base::ReadNumber<std::int64_t>(server_cache_file.Get(kExpiredTime), 0), 0);
  const std::int64_t remaining = expired_time - now;
  const auto delay = remaining > kExpirySlack
                         ? static_cast<std::int32_t>(std::min(remaining, kLongestFirstDelay))
                         : kDelayOfExpired;
  ZO_LOG << "[http dns][init] Invoke s after " << delay << " ms";
  ReloadAfter(delay, "[http dns][init] Invoke s (expired)");
}

void HttpDNSManager::ReloadAfter(std::int32_t delay_ms, const char* log_text) {
  timer.Start(delay_ms, Weakly([log_text](auto& self) {
                ZO_LOG << log_text;
                self.DoReload(zo_net::kAddressFamilyAny);
              }),
              0);
}

void HttpDNSManager::DoReload(zo_net::AddressFamily family) {
  if (updatting_interface_.exchange(true)) {
    ZO_LOG << "[http dns] Update DNS -s updatting_interface_ = true,return";
    return;
  }
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) {
    ZO_LOG << "[http dns] Update DNS -s environment exit,return";
    return;
  }
  const MultipleURLHttpRequest request = MakeSRequest(family, *config);
  ZO_LOG << "[http dns] Begin update service";
  InvokeHttpRequest(request, true);
}

MultipleURLHttpRequest HttpDNSManager::MakeSRequest(zo_net::AddressFamily family,
                                                    _EnvironmentConfig& config) {
  MultipleURLHttpRequest request;
  request.context.business = config.business_type();
  request.context.trace_id = config.GenerateTraceId();
  request.context.exception_category = GetExceptionCategory(kServiceCodeHttpDns);
  request.headers = MakeContextHeaders(request.context);
  request.urls = MakeSUrlEntries(GetServerList(family), server_list.GetHost());
  request.time_out = config.single_request_timeout();
  request.multiple_time_out = config.single_request_prefail_timeout();
  request.use_http_dns_if_fail = false;  // A lookup must not depend on itself.
  request.address_family = family;
  request.check_callback = [](std::int32_t index, std::int32_t code, const std::string& url,
                              const std::string&, const std::string& body,
                              std::uint64_t) { return CheckS(index, code, url, body); };
  request.result_callback = [weak =
                                 std::weak_ptr<HttpDNSManager>(shared_from_this<HttpDNSManager>())](
                                bool, bool success, const std::string&, const std::string& body) {
    if (const auto living = weak.lock()) living->OnReloadEnd(success, body);
  };
  return request;
}

void HttpDNSManager::OnReloadEnd(bool success, const std::string& body) {
  ZO_LOG << "[http dns] Service update complete success = " << TextOf(success);
  ZO_LOG_AT(zo_base::kLogProtocol)
      << "[http dns] Service update complete \r\n-----------------------\r\n"
      << body << "\r\n-----------------------";
  if (success) {
    retry_count = 0;
    PostTask(Weakly([body](auto& self) { self.OnServers(body); }));
  } else {
    PostTask(Weakly([](auto& self) { self.RetryReload(); }));
  }
  updatting_interface_ = false;
}

void HttpDNSManager::RetryReload() {
  const std::int32_t count = std::min(retry_count + 1, kMostRetryUnits);
  retry_count = count;
  ZO_LOG << "[http dns] Update fail redo after :" << count * kRetryUnit << "ms";
  ReloadAfter(count * kRetryUnit, "[http dns] Update S by (fail)");
}

void HttpDNSManager::OnServers(const std::string& body) {
  timer.Stop();
  const HttpDNSServiceAnswer answer = ReadSResponse(body);
  const auto store_unless_empty = [this](const char* key, const Json& list) {
    const std::string text = list.dump();
    // Text that is no UTF-8 would keep the whole file from being saved.
    const bool can_be_kept = zo_base::IsUtf8(text) && CanBeUsed(key, text);
    if (can_be_kept && !ReadServers(list, false).empty()) server_cache_file.Set(key, text);
  };
  server_cache_file.Set(kHost, answer.host);
  server_cache_file.Set(kTtl, std::to_string(answer.ttl_ms));
  store_unless_empty(kIPv4, answer.ipv4);
  store_unless_empty(kIPv6, answer.ipv6);
  server_cache_file.Set(kExpiredTime, std::to_string(wall_clock() + answer.ttl_ms));
  server_cache_file.Save();
  server_list.SetServers(answer.host, ReadServers(answer.ipv4, false),
                         ReadServers(answer.ipv6, false));
  ZO_LOG << "[http dns] Update success ttl : " << answer.ttl_ms << " ms";
  ReloadAfter(static_cast<std::int32_t>(std::min(answer.ttl_ms, kLongestDelay)),
              "[http dns] Update S (success)");
}

}  // namespace zo_tarvel
