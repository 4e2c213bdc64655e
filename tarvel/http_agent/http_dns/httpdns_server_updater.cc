#include "tarvel/http_agent/http_dns/httpdns_server_updater.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

#include "base/log/log.h"
#include "base/object/weakly.h"
#include "base/text/numbers.h"
#include "base/text/strings.h"
#include "base/text/utf8.h"
#include "network/http/http_response.h"
#include "network/url/host_rules.h"
#include "tarvel/environment/configuration/deployment.h"

namespace zo_tarvel {
namespace {

using std::chrono::milliseconds;
using WQBASE::network::CanBeHost;
using WQBASE::network::kHttpOk;
using zo_base::TrueOrFalse;
using zo_base::Weakly;
using zo_base::json11::Json;
using Servers = std::vector<HttpDNSServerInfo>;

// Keys of the server cache file.
constexpr char kHost[] = "host";
constexpr char kIPv4[] = "ipv4";
constexpr char kIPv6[] = "ipv6";
constexpr char kTtl[] = "ttl";
constexpr char kUpdatedAt[] = "updated_at";
constexpr char kExpiredTime[] = "expired_time";

// A list as text: room for the 32 servers that are used, with the longest names.
constexpr std::size_t kLongestList = 64UL * 1024;

// Whether the server cache file has a use for the entry.
bool CanBeUsed(const std::string& key, const std::string& value) {
  const std::string_view keys[] = {kHost, kIPv4, kIPv6, kTtl, kUpdatedAt, kExpiredTime};
  return std::find(std::begin(keys), std::end(keys), key) != std::end(keys) &&
         value.size() <= kLongestList;
}

// A list from the file that ends within the slack counts as ended. One that lives for weeks is
// renewed after a day all the same.
constexpr milliseconds kLongestFirstDelay = std::chrono::hours(24);
constexpr milliseconds kExpirySlack{2'000};
constexpr milliseconds kDelayOfExpired{50};
constexpr milliseconds kLongestDelay{std::numeric_limits<std::int32_t>::max()};  // A timer's.
// The next attempt waits for as many units as there were failures in a row, up to five.
constexpr milliseconds kRetryUnit = std::chrono::minutes(1);
constexpr std::int32_t kMostRetryUnits = 5;

Servers ParseServers(const std::string& list, bool only_https) {
  std::string error;
  return ReadServers(Json::parse(list, error), only_https);
}

template <class Addresses>
std::string ServersText(const Addresses& addresses) {
  Json::array servers;
  for (const char* address : addresses) {
    servers.push_back(Json::object{{"host", address}, {"port", 443}, {"https", true}});
  }
  return Json(std::move(servers)).dump();
}

std::optional<HttpDNSServiceAnswer> CheckS(std::int32_t index, std::int32_t code,
                                           const std::string& url, const std::string& body,
                                           std::string& error) {
  ZO_LOG << "[http dns] Check response index:" << index << " url:" << url << " code:" << code;
  if (code != kHttpOk) {
    ZO_LOG << "[http dns] Check response(S) res = false";
    error = "Function S response code != 200";
    return std::nullopt;
  }
  auto answer = CheckSResponse(body, error);
  ZO_LOG << "[http dns] Check response(S) res = " << TrueOrFalse(answer.has_value())
         << (answer ? std::string() : " error_message:" + error);
  return answer;
}

}  // namespace

HttpDNSServerUpdater::HttpDNSServerUpdater(zo_base::WallClock wall_clock,
                                           std::shared_ptr<zo_base::ITaskLoop> task_loop)
    : wall_clock(wall_clock),
      task_loop(std::move(task_loop)),
      server_cache_file(CanBeUsed),
      timer(this->task_loop) {}

Servers HttpDNSServerUpdater::GetServerList(zo_net::AddressFamily family) {
  const auto config = GetEnvironmentConfig();
  return server_list.GetServers(family, config != nullptr && config->only_https_supported());
}

void HttpDNSServerUpdater::LoadServerCache(const std::string& path) {
  server_cache_file.Load(path);
  if (CanBeHost(server_cache_file.Get(kHost)) && !server_cache_file.Get(kIPv4).empty()) return;
  const std::string now = std::to_string(wall_clock());
  server_cache_file.Set(kHost, kDefaultHttpDNSHost);
  server_cache_file.Set(kIPv4, ServersText(kDefaultHttpDNSIPv4));
  server_cache_file.Set(kIPv6, ServersText(kDefaultHttpDNSIPv6));
  server_cache_file.Set(kTtl, "3600");
  server_cache_file.Set(kUpdatedAt, now);
  server_cache_file.Set(kExpiredTime, now);
  server_cache_file.Save();
}

void HttpDNSServerUpdater::InitInterfaceAddress() {
  const auto config = GetEnvironmentConfig();
  const bool only_https = config != nullptr && config->only_https_supported();
  server_list.SetServers(server_cache_file.Get(kHost),
                         ParseServers(server_cache_file.Get(kIPv4), only_https),
                         ParseServers(server_cache_file.Get(kIPv6), only_https));
  task_loop->PostTask(Weakly(this, [](auto& self) { self.ScheduleFirstReload(); }));
}

void HttpDNSServerUpdater::ScheduleFirstReload() {
  // A time before 1970 is cut to 0, so that the difference can't overflow.
  const auto expired_time = std::max<std::int64_t>(
      zo_base::ReadNumber<std::int64_t>(server_cache_file.Get(kExpiredTime), 0), 0);
  const milliseconds remaining(expired_time - wall_clock());
  const milliseconds delay =
      remaining > kExpirySlack ? std::min(remaining, kLongestFirstDelay) : kDelayOfExpired;
  ZO_LOG << "[http dns][init] Invoke s after " << delay.count() << " ms";
  ReloadAfter(delay, "[http dns][init] Invoke s (expired)");
}

void HttpDNSServerUpdater::ReloadAfter(milliseconds delay, const char* log_text) {
  const auto reload = [log_text](auto& self) {
    ZO_LOG << log_text;
    self.DoReload(zo_net::kAddressFamilyAny);
  };
  timer.Start(static_cast<std::int32_t>(std::min(delay, kLongestDelay).count()),
              Weakly(this, reload), 0);
}

void HttpDNSServerUpdater::DoReload(zo_net::AddressFamily family) {
  loop_thread.AssertSameThread();
  if (updatting_interface_.exchange(true)) {
    ZO_LOG << "[http dns] Update DNS -s updatting_interface_ = true,return";
    return;
  }
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) {
    ZO_LOG << "[http dns] Update DNS -s environment exit,return";
    return;
  }
  MultipleURLHttpRequest request = MakeSRequest(*config, family, GetServerList(family));
  SetCallbacks(request, CheckS, Weakly(this, [](auto& self, const auto&... result) {
                 self.OnReloadEnd(result...);
               }));
  ZO_LOG << "[http dns] Begin update service";
  InvokeHttpRequest(request, true);
}

void HttpDNSServerUpdater::OnReloadEnd(bool success, const std::string& body,
                                       const std::optional<HttpDNSServiceAnswer>& answer) {
  ZO_LOG << "[http dns] Service update complete success = " << TrueOrFalse(success);
  ZO_LOG_AT(zo_base::kLogProtocol)
      << "[http dns] Service update complete \r\n-----------------------\r\n"
      << body << "\r\n-----------------------";
  task_loop->PostTask(Weakly(this, [answer = success ? answer : std::nullopt](auto& self) {
    answer ? self.OnServers(*answer) : self.RetryReload();
  }));
  updatting_interface_ = false;
}

void HttpDNSServerUpdater::RetryReload() {
  loop_thread.AssertSameThread();
  retry_count = std::min(retry_count + 1, kMostRetryUnits);
  const milliseconds delay = retry_count.load() * kRetryUnit;
  ZO_LOG << "[http dns] Update fail redo after :" << delay.count() << "ms";
  ReloadAfter(delay, "[http dns] Update S by (fail)");
}

void HttpDNSServerUpdater::OnServers(const HttpDNSServiceAnswer& answer) {
  loop_thread.AssertSameThread();
  timer.Stop();
  retry_count = 0;
  const Servers ipv4 = ReadServers(answer.ipv4, false);
  const Servers ipv6 = ReadServers(answer.ipv6, false);
  const auto store = [this](const char* key, const Json& list, const Servers& servers) {
    const std::string text = list.dump();
    // Text that is no UTF-8 would keep the whole file from being saved.
    const bool can_be_kept = zo_base::IsUtf8(text) && CanBeUsed(key, text);
    if (can_be_kept && !servers.empty()) server_cache_file.Set(key, text);
  };
  server_cache_file.Set(kHost, answer.host);
  server_cache_file.Set(kTtl, std::to_string(answer.ttl.count()));
  store(kIPv4, answer.ipv4, ipv4);
  store(kIPv6, answer.ipv6, ipv6);
  server_cache_file.Set(kExpiredTime, std::to_string(wall_clock() + answer.ttl.count()));
  server_cache_file.Save();
  server_list.SetServers(answer.host, ipv4, ipv6);
  ZO_LOG << "[http dns] Update success ttl : " << answer.ttl.count() << " ms";
  ReloadAfter(answer.ttl, "[http dns] Update S (success)");
}

}  // namespace zo_tarvel
