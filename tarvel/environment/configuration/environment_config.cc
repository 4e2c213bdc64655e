#include "tarvel/environment/configuration/environment_config.h"

#include <algorithm>

#include "base/text/md5.h"
#include "base/text/strings.h"
#include "tarvel/environment/configuration/exception_data_reporter.h"

namespace zo_tarvel {
namespace {

using zo_base::MutexLock;
using zo_base::TextOf;
using zo_base::TrueOrFalse;

// Two businesses never share a directory.
std::string BusinessDirectory(std::string root, const std::string& business_type) {
  std::replace(root.begin(), root.end(), '\\', '/');
  if (root.empty() || root.back() != '/') root += '/';
  return root + "tarvel_comp/" + zo_base::Md5Hex(business_type) + "/";
}

void AppendLine(std::string& banner, const char* label, const std::string& value) {
  banner.append(" --").append(label).append(value).append("\r\n");
}

}  // namespace

void _EnvironmentConfig::Load(const _ZOTarvelEnvironmentSettings& settings) {
  if (settings.business_type[0] != '\0') business_type_ = TextOf(settings.business_type);
  {
    MutexLock lock(token_lock_);
    business_token_ = TextOf(settings.business_token);
  }
  business_version_ = TextOf(settings.business_version);
  sv_ = settings.sv;
  pv_ = settings.pv;
  client_type_ = settings.client_type;
  LoadDirectories(settings);
  // -1 turns the first two switches off; only 1 turns the last two on.
  enable_httpdns_ = settings.enable_httpdns != -1;
  try_http_request_on_netunav_ = settings.try_http_request_on_netunav != -1;
  only_https_supported_ = settings.only_https_supported != 0;
  enable_exception_data_reporting_ = settings.enable_exception_data_reporting == 1;
  http_request_ip_preferred_ = settings.http_request_ip_preferred == 1;
  if (settings.single_request_timeout >= 1) {  // Else both defaults stand.
    timeouts_ =
        CleanTimeouts({settings.single_request_timeout, settings.single_request_prefail_timeout});
  }
  if (!exception_reporter_) exception_reporter_ = std::make_shared<ExceptionDataReporterImpl>();
  dynamic_cast<EnvironmentConfigGetterBase&>(*exception_reporter_)
      .SetEnvironmentConfig(shared_from_this<_EnvironmentConfig>());
  SetExitFlag(false);
}

void _EnvironmentConfig::LoadDirectories(const _ZOTarvelEnvironmentSettings& settings) {
  const std::string appdata = TextOf(settings.appdata_path);
  const std::string log = TextOf(settings.log_path);
  appdata_path_ = BusinessDirectory(appdata.empty() ? log : appdata, business_type_);
  log_path_ = BusinessDirectory(log.empty() ? appdata : log, business_type_);
}

std::string _EnvironmentConfig::GetBusinessToken() const {
  MutexLock lock(token_lock_);
  return business_token_;
}

void _EnvironmentConfig::SetBusinessToken(const std::string& token) {
  MutexLock change(token_change_lock_);
  {
    MutexLock lock(token_lock_);
    if (token == business_token_) return;
    business_token_ = token;
  }
  Emit<const std::string>(SIG_BusinessTokenChanged, token);
}

void _EnvironmentConfig::SetAddressFamily(zo_net::AddressFamily family, bool notify) {
  address_family_.store(family);
  if (notify) Emit<zo_net::AddressFamily>(SIG_NetworkChanged, family);
}

void _EnvironmentConfig::SetStatisticSettings(const StatisticSettings& settings) {
  MutexLock lock(statistic_settings_lock_);
  statistic_settings_ = settings;
}

StatisticSettings _EnvironmentConfig::statistic_settings() const {
  MutexLock lock(statistic_settings_lock_);
  return statistic_settings_;
}

std::string _EnvironmentConfig::FormatBanner() const {
  std::string banner = "zo_tarvel config:\r\n";
  AppendLine(banner, "business type:", business_type_);
  AppendLine(banner, "business token:", GetBusinessToken());
  AppendLine(banner, "business version:",
             business_version_ + "_" + std::to_string(sv_) + "_" + std::to_string(pv_));
  AppendLine(banner, "client type:", std::to_string(client_type_));
  AppendLine(banner, "appdata path:", appdata_path_);
  AppendLine(banner, "log path:", log_path_);
  AppendLine(banner, "enable httpdns:", TrueOrFalse(enable_httpdns_));
  AppendLine(banner, "try http request on netunav:", TrueOrFalse(try_http_request_on_netunav_));
  AppendLine(banner, "only https supported:", TrueOrFalse(only_https_supported_));
  AppendLine(banner, "single request timeout:", std::to_string(single_request_timeout()));
  AppendLine(banner,
             "single request prefail timeout:", std::to_string(single_request_prefail_timeout()));
  AppendLine(banner, "http request ip preferred:", TrueOrFalse(http_request_ip_preferred_));
  AppendLine(banner,
             "enable exception data reporting:", TrueOrFalse(enable_exception_data_reporting_));
  return banner;
}

}  // namespace zo_tarvel
