#pragma once

#include <tarvel/tarvel.h>

#include "tarvel/environment/configuration/deployment.h"

namespace zo_tarvel {

// The switch of the message statistics. A plain value.
struct MsgStatInfo {
  // One JSON object, with the one member "msg_stat_info".
  std::string ToJson() const;
  // Long texts are cut.
  void FillRecord(_ZOTarvelMsgStatInfo& record) const;

  bool enable = false;
  std::string host = kDefaultStatisticsHost;
  std::string api = kDefaultMessageStatisticsPath;
  std::string desc = "online";
};

}  // namespace zo_tarvel
