// Makes an answer of the LBS server, or a kept one, the active one.

#include "base/log/log.h"
#include "base/process/steady_time.h"
#include "business/tarvel_lbs/tarvel_lbs_service.h"

namespace zo_tarvel {
namespace {

using zo_base::kMillisecondsPerSecond;
using zo_base::MutexLock;

// The chooser behind the first one, and which follows each; none is -1.
constexpr std::int32_t kDefaultLinkChooser = 1;
constexpr std::int32_t kNextChooser[] = {1, -1, 3, -1};

}  // namespace

bool ZOTarvelLBSServiceImpl::ParseLBSResponse(const std::string& rsp, const std::string& ip_version,
                                              AnswerOrigin origin) {
  ZO_LOG << "[lbs]ParseLBSResponse rsp:\r\n--------------------------\r\n"
         << rsp << "\r\n--------------------------";
  if (rsp.empty()) return false;
  const auto answer = ParseLBSAnswer(rsp).answer;
  if (!answer) {
    ZO_LOG << "[lbs]ParseLBSResponse parsel result = false,use old rsp as active lbs";
    return false;
  }
  const std::string def_link = ResetLinkHosts(*answer);
  ZO_LOG << "[lbs]ParseLBSResponse parsel result = true,update active lbs";
  response.SetResponse(rsp, settings.lbs_main_addr, ip_version);
  StoreTexts(*answer, def_link);
  StoreMsgStatInfo(*answer);
  StoreExpireTime(*answer, origin);
  if (origin == AnswerOrigin::kFetched || response.store.was_read()) response.store.Save();
  if (const auto config = GetEnvironmentConfig()) config->SetStatisticSettings(answer->report);
  return true;
}

std::string ZOTarvelLBSServiceImpl::ResetLinkHosts(const LBSAnswer& answer) {
  const std::int32_t family = addr_family;
  std::map<std::int32_t, std::shared_ptr<HostChooser>> choosers;
  for (const std::int32_t id : {kLinkChooser, kDefaultLinkChooser}) {
    choosers[id] = std::make_shared<HostChooser>(settings.default_link, settings.default_link_ipv6,
                                                 kNextChooser[id]);
  }
  HostChooser& links = *choosers[kLinkChooser];
  HostChooser& default_links = *choosers[kDefaultLinkChooser];
  links.ResetHosts(answer.link);
  default_links.ResetHosts(answer.default_link);
  // The fallback of a used-up list is an address of "link.default" that suits the network.
  std::string def_link;
  default_links.GetHost(family, def_link);
  if (!def_link.empty()) links.SetDefaultHost(family, def_link);
  MutexLock hold(lock);
  link_hosts.swap(choosers);
  return def_link;
}

void ZOTarvelLBSServiceImpl::StoreTexts(const LBSAnswer& answer, const std::string& def_link) {
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

void ZOTarvelLBSServiceImpl::StoreMsgStatInfo(const LBSAnswer& answer) {
  if (!answer.msg_stat_enable) return;
  MsgStatInfo info;
  info.enable = *answer.msg_stat_enable;
  info.host = answer.report.host;
  info.desc = answer.desc;
  response.store.Set(lbs_key::kMsgStatInfo, info.ToJson());
  const std::string stored = response.store.Get(lbs_key::kMsgStatInfo);
  MutexLock hold(values_lock);
  msg_stat_info.FromJson(stored);
}

void ZOTarvelLBSServiceImpl::StoreExpireTime(const LBSAnswer& answer, AnswerOrigin origin) {
  if (answer.ttl < 0) return;
  if (origin == AnswerOrigin::kKept && response.store.Has(lbs_key::kExpireTime)) return;
  response.SetExpireTime(wall_clock() + answer.ttl * kMillisecondsPerSecond);
}

}  // namespace zo_tarvel
