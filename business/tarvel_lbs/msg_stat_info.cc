#include "business/tarvel_lbs/msg_stat_info.h"

#include <algorithm>
#include <cstddef>

#include "base/json/json11.h"
#include "base/text/text_of.h"

namespace zo_tarvel {
namespace {

using zo_base::json11::Json;

constexpr char kObject[] = "msg_stat_info";
constexpr char kEnable[] = "msg_stat_info_enable";
constexpr char kHost[] = "msg_stat_info_host";
constexpr char kApi[] = "msg_stat_info_api";
constexpr char kDesc[] = "desc";

void Read(const Json& object, const char* key, std::string& field) {
  const Json& value = object[key];
  if (value.is_string()) field = value.string_value();
}

// The last byte of the zeroed array stays zero.
template <std::size_t kSize>
void Fill(char (&array)[kSize], const std::string& text) {
  std::copy_n(text.data(), std::min(text.size(), kSize - 1), array);
}

}  // namespace

std::string MsgStatInfo::ToJson() const {
  const Json::object members{
      {kEnable, zo_base::TextOf(enable)}, {kHost, host}, {kApi, api}, {kDesc, desc}};
  return Json(Json::object{{kObject, members}}).dump();
}

void MsgStatInfo::FromJson(const std::string& text) {
  std::string error;
  const Json whole = Json::parse(text, error);
  const Json& object = whole[kObject];
  std::string enabled = zo_base::TextOf(enable);
  Read(object, kEnable, enabled);
  enable = enabled == "true";
  Read(object, kHost, host);
  Read(object, kApi, api);
  Read(object, kDesc, desc);
}

void MsgStatInfo::FillRecord(_ZOTarvelMsgStatInfo& record) const {
  record = {};
  record.enable = enable;
  Fill(record.host, host);
  Fill(record.api, api);
  Fill(record.desc, desc);
}

}  // namespace zo_tarvel
