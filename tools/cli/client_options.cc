#include "tools/cli/client_options.h"

#include <chrono>
#include <cstddef>
#include <cstring>

namespace tarvel_cli {

namespace {

constexpr int kOff = -1;

// Rejects a string that is too long instead of cutting it silently.
template <std::size_t kSize>
void Put(const std::string& text, char (&field)[kSize], const char* option) {
  if (text.size() >= kSize) {
    throw UsageError(std::string(option) + " takes " + std::to_string(kSize - 1) +
                     " bytes at most");
  }
  std::memcpy(field, text.c_str(), text.size() + 1);
}

}  // namespace

zo_net::AddressFamily FamilyOf(const ClientOptions& options) {
  if (options.family == "4") return zo_net::kAddressFamilyIPv4;
  return options.family == "6" ? zo_net::kAddressFamilyIPv6 : zo_net::kAddressFamilyAny;
}

tarvel::Settings ClientSettings(const ClientOptions& options) {
  tarvel::Settings settings;
  settings.token = options.token;
  settings.business = options.business;
  settings.client_version = options.client_version;
  settings.sdk_version = options.sdk_version;
  settings.protocol_version = options.protocol_version;
  settings.client_type = options.client_type;
  settings.directory = options.data;
  settings.log_directory = options.log_dir;
  settings.lbs_url = options.lbs;
  settings.backup_lbs_urls = options.backups;
  settings.links = options.links;
  settings.default_link = options.default_link;
  settings.default_link_ipv6 = options.default_link_ipv6;
  settings.lbs_host = options.lbs_host;
  settings.prefer_ip_addresses = options.prefer_ip_addresses;
  settings.ask_without_network = !options.only_with_network;
  settings.family = static_cast<tarvel::Family>(FamilyOf(options));
  settings.request_timeout = std::chrono::milliseconds(options.timeout_ms);
  settings.head_start = std::chrono::milliseconds(options.next_after_ms);
  settings.https_only = options.https_only;
  settings.httpdns = !options.no_httpdns;
  if (!options.account_id.empty()) {
    settings.account_id = [id = options.account_id] { return id; };
  }
  return settings;
}

zo_tarvel::_ZOTarvelEnvironmentSettings EnvironmentSettings(const ClientOptions& options) {
  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  Put(options.business, settings.business_type, "--business");
  Put(options.client_version, settings.business_version, "--client-version");
  Put(options.data, settings.appdata_path, "--data");
  Put(options.log_dir, settings.log_path, "--log-dir");
  settings.enable_httpdns = kOff;
  settings.only_https_supported = options.https_only ? 1 : 0;
  settings.single_request_timeout = options.timeout_ms;
  settings.single_request_prefail_timeout = options.next_after_ms;
  return settings;
}

}  // namespace tarvel_cli
