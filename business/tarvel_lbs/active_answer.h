#pragma once

#include <map>
#include <memory>

#include "base/process/clock.h"
#include "business/tarvel_lbs/host_chooser/host_chooser.h"
#include "business/tarvel_lbs/lbs_answer.h"
#include "business/tarvel_lbs/lbs_response.h"
#include "business/tarvel_lbs/msg_stat_info.h"

namespace zo_tarvel {

// The answer that is active: makes one active, and hands out its texts and link addresses.
//
// Threads: Init comes first. Afterwards one thread at a time makes answers active; all else from
// any thread. Ownership: part of the service.
class ActiveAnswer {
 public:
  // `settings` outlives this. `wall_clock` times the life of answers.
  ActiveAnswer(const LBSSettings& settings, zo_base::WallClock wall_clock);

  // Makes the cached answer active, or one from the settings.
  void Init(const std::shared_ptr<_EnvironmentConfig>& config);
  // Makes `rsp` active. `fetched` is what a check has read of a fresh answer. Without it `rsp` is a
  // cached one, which keeps its time of expiry: it would otherwise never expire. Returns false for
  // a text that is no answer; then the old one stays active.
  bool ParseLBSResponse(const std::string& rsp, const std::string& ip_version,
                        const std::optional<LBSAnswer>& fetched = std::nullopt);

  // By a key of lbs_key.
  std::string Text(const char* key) const { return response.store.Get(key); }
  // The URLs to ask next, in the order of the attempts.
  std::vector<std::string> LBSUrls() const { return response.GetLBSUrls(); }
  // The chooser of the addresses that the client gets. Never null.
  std::shared_ptr<HostChooser> LinkChooser() const ZO_EXCLUDES(lock);
  void FillMsgStatInfo(_ZOTarvelMsgStatInfo& record) const ZO_EXCLUDES(lock);
  // In milliseconds; 0 when the answer has expired.
  std::int64_t TimeLeft() const;

 private:
  // Returns the address picked from "link.default".
  std::string ResetLinkHosts(const LBSAnswer& answer) ZO_EXCLUDES(lock);
  void StoreTexts(const LBSAnswer& answer, const std::string& def_link);
  void StoreMsgStatInfo(const LBSAnswer& answer) ZO_EXCLUDES(lock);

  const LBSSettings& settings;
  const zo_base::WallClock wall_clock;

  LBSResponse response;  // The store has locks of its own.

  // Never held over a log line or another lock: the client's log function may ask for links.
  mutable zo_base::_thread_recursive_mutex lock;
  std::map<std::int32_t, std::shared_ptr<HostChooser>> link_hosts ZO_GUARDED_BY(lock);
  MsgStatInfo msg_stat_info ZO_GUARDED_BY(lock);
};

}  // namespace zo_tarvel
