#include "business/tarvel_lbs/lbs_settings.h"

#include "base/text/strings.h"

namespace zo_tarvel {
namespace {

using zo_base::TextOf;
using zo_base::TrueOrFalse;

void AssignUnlessEmpty(std::string& field, const std::string& text) {
  if (!text.empty()) field = text;
}

template <std::size_t kSlots, std::size_t kSize>
std::vector<std::string> FilledSlots(const char (&slots)[kSlots][kSize]) {
  std::vector<std::string> filled;
  for (const auto& slot : slots) {
    if (slot[0] != '\0') filled.push_back(TextOf(slot));
  }
  return filled;
}

}  // namespace

void LBSSettings::Assign(const _ZOTarvelLBSSettings& record,
                         const _EnvironmentConfig* environment) {
  using_private = record.using_private;
  def_lbs_host = TextOf(record.def_lbs_host);
  if (record.addr_family <= kEMAddressFamilyIPv6) {
    addr_family = static_cast<std::int32_t>(record.addr_family);
  }
  AssignAddresses(record);
  AssignTimeouts(record.sreq_timeout_ms, record.sreq_pred_fail_time_ms, environment);
}

void LBSSettings::AssignAddresses(const _ZOTarvelLBSSettings& record) {
  AssignUnlessEmpty(lbs_main_addr, TextOf(record.lbs_main_addr));
  lbs_backup_addrs = FilledSlots(record.lbs_backup_addrs);
  AssignUnlessEmpty(default_link, TextOf(record.default_link));
  // Default to the client's `default_link`, not to the built-in address, which would override the
  // client's setting.
  default_link_ipv6 = default_link;
  AssignUnlessEmpty(default_link_ipv6, TextOf(record.default_link_ipv6));
  link_list = FilledSlots(record.link_list);
  if (!link_list.empty()) return;
  const std::int32_t family = addr_family;  // Read once: a network change may write it meanwhile.
  if (family != kEMAddressFamilyIPv6) link_list.push_back(default_link);
  if (family != kEMAddressFamilyIPv4) link_list.push_back(default_link_ipv6);
}

void LBSSettings::AssignTimeouts(std::int32_t timeout, std::int32_t pred_fail_time,
                                 const _EnvironmentConfig* environment) {
  if (timeout >= 1) {
    const RequestTimeouts clean = CleanTimeouts({timeout, pred_fail_time});
    sreq_timeout_ms = clean.timeout;
    sreq_pred_fail_time_ms = clean.prefail_timeout;
  } else if (environment != nullptr) {
    sreq_timeout_ms = environment->single_request_timeout();
    sreq_pred_fail_time_ms = environment->single_request_prefail_timeout();
  }
}

std::string LBSSettings::Dump() const {
  std::string text;
  const auto add = [&text](const char* label, const std::string& value) {
    text.append("-- ").append(label).append(":").append(value).append("\n");
  };
  const auto add_list = [&](const char* label, const std::vector<std::string>& items) {
    add(label, "");
    for (const std::string& item : items) text.append("   - ").append(item).append("\r\n");
  };
  add("using_private", TrueOrFalse(using_private));
  add("lbs_main_addr", lbs_main_addr);
  add("default_link", default_link);
  add("default_link_ipv6", default_link_ipv6);
  add("addr_family", std::to_string(addr_family));
  add("sreq_timeout_ms", std::to_string(sreq_timeout_ms));
  add("sreq_pred_fail_time_ms", std::to_string(sreq_pred_fail_time_ms));
  add("def_lbs_host", def_lbs_host);
  add_list("lbs_backup_addrs", lbs_backup_addrs);
  add_list("link_list", link_list);
  return text;
}

}  // namespace zo_tarvel
