#include "tools/cli/client_options.h"

#include <cstddef>
#include <cstring>
#include <iterator>

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

template <std::size_t kCount, std::size_t kSize>
void PutAll(const std::vector<std::string>& texts, char (&fields)[kCount][kSize],
            const char* option) {
  if (texts.size() > kCount) {
    throw UsageError(std::string(option) + " may be given " + std::to_string(kCount) +
                     " times at most");
  }
  for (std::size_t i = 0; i < texts.size(); ++i) Put(texts[i], fields[i], option);
}

}  // namespace

zo_net::AddressFamily FamilyOf(const ClientOptions& options) {
  if (options.family == "4") return zo_net::kAddressFamilyIPv4;
  return options.family == "6" ? zo_net::kAddressFamilyIPv6 : zo_net::kAddressFamilyAny;
}

zo_tarvel::_ZOTarvelEnvironmentSettings EnvironmentSettings(const ClientOptions& options) {
  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  Put(options.business, settings.business_type, "--business");
  Put(options.token, settings.business_token, "--token");
  Put("1.0", settings.business_version, "version");
  Put(options.data, settings.appdata_path, "--data");
  Put(options.log_dir, settings.log_path, "--log-dir");
  settings.enable_httpdns = options.no_httpdns ? kOff : 0;
  settings.only_https_supported = options.https_only ? 1 : 0;
  settings.single_request_timeout = options.timeout_ms;
  settings.single_request_prefail_timeout = options.next_after_ms;
  settings.enable_exception_data_reporting = 1;
  return settings;
}

zo_tarvel::_ZOTarvelLBSSettings LBSSettings(const ClientOptions& options) {
  zo_tarvel::_ZOTarvelLBSSettings settings;
  Put(options.lbs, settings.lbs_main_addr, "--lbs");
  PutAll(options.backups, settings.lbs_backup_addrs, "--backup");
  PutAll(options.links, settings.link_list, "--link");
  Put(options.default_link, settings.default_link, "--default-link");
  settings.addr_family = static_cast<std::uint32_t>(FamilyOf(options));
  return settings;
}

}  // namespace tarvel_cli
