#include "business/tarvel_lbs/active_answer.h"

#include <algorithm>

#include "base/log/log.h"
#include "base/process/clock.h"

namespace zo_tarvel {
namespace {

using zo_base::MutexLock;

constexpr std::int32_t kLinkChooser = 0;
constexpr std::int32_t kDefaultLinkChooser = 1;
// By id; -1: none follows.
constexpr std::int32_t kNextChooser[] = {1, -1, 3, -1};

}  // namespace

ActiveAnswer::ActiveAnswer(const LBSSettings& settings, zo_base::WallClock wall_clock)
    : settings(settings),
      wall_clock(wall_clock),
      link_hosts{
          {kLinkChooser, std::make_shared<HostChooser>("", "", kNextChooser[kLinkChooser])}} {}

void ActiveAnswer::Init(const std::shared_ptr<_EnvironmentConfig>& config) {
  response.SetEnvironmentConfig(config);
  response.Init(settings);
  ParseLBSResponse(Text(lbs_key::kRsp), response.GetIPVersion());
}

bool ActiveAnswer::ParseLBSResponse(const std::string& rsp, const std::string& ip_version,
                                    const std::optional<LBSAnswer>& fetched) {
  ZO_LOG << "[lbs]ParseLBSResponse rsp:\r\n--------------------------\r\n"
         << rsp << "\r\n--------------------------";
  if (rsp.empty()) return false;
  const auto cached = fetched ? std::nullopt : ParseLBSAnswer(rsp).answer;
  if (!fetched && !cached) {
    ZO_LOG << "[lbs]ParseLBSResponse parsel result = false,use old rsp as active lbs";
    return false;
  }
  const LBSAnswer& answer = fetched ? *fetched : *cached;
  const std::string def_link = ResetLinkHosts(answer);
  ZO_LOG << "[lbs]ParseLBSResponse parsel result = true,update active lbs";
  response.SetResponse(rsp, settings.lbs_main_addr, ip_version);
  StoreTexts(answer, def_link);
  StoreMsgStatInfo(answer);
  if (answer.ttl >= 0 && (fetched || !response.store.Has(lbs_key::kExpireTime))) {
    response.SetExpireTime(wall_clock() + answer.ttl * zo_base::kMillisecondsPerSecond);
  }
  if (fetched || response.store.was_read()) response.store.Save();
  const auto config = response.GetEnvironmentConfig();
  if (config) config->SetStatisticSettings(answer.report);
  return true;
}

std::string ActiveAnswer::ResetLinkHosts(const LBSAnswer& answer) {
  const auto new_chooser = [this](std::int32_t id) {
    return std::make_shared<HostChooser>(settings.default_link, settings.default_link_ipv6,
                                         kNextChooser[id]);
  };
  const auto links = new_chooser(kLinkChooser);
  const auto default_links = new_chooser(kDefaultLinkChooser);
  links->ResetHosts(answer.link);
  default_links->ResetHosts(answer.default_link);
  // The fallback of a used-up list is an address of "link.default" that suits the network.
  const std::int32_t family = settings.addr_family;
  std::string def_link;
  default_links->GetHost(family, def_link);
  if (!def_link.empty()) links->SetDefaultHost(family, def_link);
  decltype(link_hosts) choosers{{kLinkChooser, links}, {kDefaultLinkChooser, default_links}};
  MutexLock hold(lock);
  link_hosts.swap(choosers);
  return def_link;
}

void ActiveAnswer::StoreTexts(const LBSAnswer& answer, const std::string& def_link) {
  const auto store_unless_empty = [this](const char* key, const std::string& text) {
    if (!text.empty()) response.store.Set(key, text);
  };
  store_unless_empty(lbs_key::kRuntimeLBS, answer.lbs);
  if (!answer.lbs_backup.empty()) response.SetBackupLBS(answer.lbs_backup);
  response.store.Set(lbs_key::kDefLinkAddr, def_link);
  store_unless_empty(lbs_key::kZebDl, answer.zeb_dl);
  store_unless_empty(lbs_key::kZebDlList, answer.zeb_dl_list);
  store_unless_empty(lbs_key::kZebList, answer.zeb_list);
  store_unless_empty(lbs_key::kName, answer.name);
  store_unless_empty(lbs_key::kDesc, answer.desc);
}

void ActiveAnswer::StoreMsgStatInfo(const LBSAnswer& answer) {
  if (!answer.msg_stat_enable) return;
  MsgStatInfo info;
  info.enable = *answer.msg_stat_enable;
  info.host = answer.report.host;
  info.desc = answer.desc;
  response.store.Set(lbs_key::kMsgStatInfo, info.ToJson());
  MutexLock hold(lock);
  msg_stat_info = info;
}

std::shared_ptr<HostChooser> ActiveAnswer::LinkChooser() const {
  MutexLock hold(lock);
  return link_hosts.at(kLinkChooser);
}

void ActiveAnswer::FillMsgStatInfo(_ZOTarvelMsgStatInfo& record) const {
  MutexLock hold(lock);
  msg_stat_info.FillRecord(record);
}

// A cached answer has its time of expiry from another run, and the wall clock may have jumped
// since.
std::int64_t ActiveAnswer::TimeLeft() const {
  // No time before 1970: then the difference can't overflow.
  const std::int64_t now = std::max<std::int64_t>(wall_clock(), 0);
  return std::max(response.GetExpireTime(), now) - now;
}

}  // namespace zo_tarvel
