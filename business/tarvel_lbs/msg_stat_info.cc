#include "business/tarvel_lbs/msg_stat_info.h"

#include <algorithm>
#include <cstddef>

#include "base/json/json11.h"
#include "base/text/strings.h"

namespace zo_tarvel {
namespace {

using zo_base::json11::Json;

// The last byte of the zeroed array stays zero.
template <std::size_t kSize>
void Fill(char (&array)[kSize], const std::string& text) {
  std::copy_n(text.data(), std::min(text.size(), kSize - 1), array);
}

}  // namespace

std::string MsgStatInfo::ToJson() const {
  const Json::object members{{"msg_stat_info_enable", zo_base::TrueOrFalse(enable)},
                             {"msg_stat_info_host", host},
                             {"msg_stat_info_api", api},
                             {"desc", desc}};
  return Json(Json::object{{"msg_stat_info", members}}).dump();
}

void MsgStatInfo::FillRecord(_ZOTarvelMsgStatInfo& record) const {
  record = {};
  record.enable = enable;
  Fill(record.host, host);
  Fill(record.api, api);
  Fill(record.desc, desc);
}

}  // namespace zo_tarvel
