#pragma once

#include <vector>

#include "tarvel/environment/configuration/environment_config.h"

namespace zo_tarvel {

// The client's record, cleaned. Constant after Assign, except for the family, which follows the
// network.
struct LBSSettings {
  // Takes the time-outs from `environment` when the record has none. A null `environment` leaves
  // the built-in ones.
  void Assign(const _ZOTarvelLBSSettings& record, const _EnvironmentConfig* environment);

  // The values for the log.
  std::string Dump() const;

  bool using_private = false;
  std::string lbs_main_addr = kDefaultLBSUrl;
  std::vector<std::string> lbs_backup_addrs;
  std::string default_link = kDefaultLink;
  std::string default_link_ipv6 = kDefaultLink;
  std::vector<std::string> link_list;
  std::atomic<std::int32_t> addr_family{kEMAddressFamilyIPv4};
  std::int32_t sreq_timeout_ms = RequestTimeouts().timeout;
  std::int32_t sreq_pred_fail_time_ms = RequestTimeouts().prefail_timeout;
  std::string def_lbs_host;

 private:
  void AssignAddresses(const _ZOTarvelLBSSettings& record);
  void AssignTimeouts(std::int32_t timeout, std::int32_t pred_fail_time,
                      const _EnvironmentConfig* environment);
};

}  // namespace zo_tarvel
