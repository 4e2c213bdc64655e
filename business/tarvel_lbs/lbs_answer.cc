#include "business/tarvel_lbs/lbs_answer.h"

#include <tarvel/tarvel.h>

#include <algorithm>

#include "base/process/steady_time.h"
#include "base/text/utf8.h"
#include "business/tarvel_lbs/link_address.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

using zo_base::kMillisecondsPerSecond;
using zo_base::json11::Json;

constexpr char kCommon[] = "common";
constexpr char kLink[] = "link";
constexpr char kDefaultLinks[] = "link.default";
constexpr char kLBS[] = "lbs";

// Life time of an answer that names none, in seconds: two or three refreshes a day.
constexpr std::int64_t kDefaultTtl = 43'200;

// Of each list of an answer: more than a client tries. All could be a million, which every start
// would read back, and every question for a family may have to walk along.
constexpr std::size_t kMostLinks = 10'000;

bool Has(const Json& object, const char* key) { return object.object_items().count(key) != 0; }

bool CanBeUsed(const Json& link) { return CanBeLinkAddress(link.string_value()); }

std::vector<std::string> ReadLinks(const Json& list) {
  std::vector<std::string> links;
  for (const Json& item : list.array_items()) {
    if (links.size() == kMostLinks) break;
    if (CanBeUsed(item)) links.push_back(item.string_value());
  }
  return links;
}

bool HasLinks(const Json& list) {
  const auto& items = list.array_items();
  return std::any_of(items.begin(), items.end(), CanBeUsed);
}

// Bytes that are no UTF-8 could never be saved, and would keep all later answers from it as well.
std::string ReadText(const Json& value) {
  const std::string& text = value.string_value();
  return zo_base::IsUtf8(text) ? text : std::string();
}

// The JSON text of whatever stands there. It can be longer than the answer.
std::string ReadJsonText(const Json& object, const char* key) {
  if (!Has(object, key)) return std::string();
  std::string text = object[key].dump();
  return FitsLBSTextBuffer(text) && zo_base::IsUtf8(text) ? text : std::string();
}

std::int64_t ReadTtl(const Json& common, const std::string& desc) {
  const std::int64_t ttl = common["ttl"].int64_value();
  if (ttl != 0) return ttl;
  return desc == kGeneratedLocally ? 0 : kDefaultTtl;
}

void ReadHost(const Json& report, std::string& host) {
  const std::string named = ReadText(report["host"]);
  if (named.empty()) return;
  host = WQBASE::network::GetScheme(named).empty() ? "https://" + named : named;
}

StatisticSettings ReadReport(const Json& report) {
  StatisticSettings settings;
  ReadHost(report, settings.host);
  const Json& api_error = report["apierror"];
  if (Has(api_error, "on")) settings.on = api_error["on"].bool_value() ? 1 : 0;
  const Json& threshold = api_error["threshold"];
  if (Has(threshold, "count")) settings.count = threshold["count"].int_value();
  if (Has(threshold, "time")) settings.time = threshold["time"].int_value();
  if (Has(threshold, "min_delay")) {
    settings.min_delay = threshold["min_delay"].int_value() * kMillisecondsPerSecond;
  }
  return settings;
}

const char* FindFault(const Json& answer) {
  const Json& common = answer[kCommon];
  if (answer.is_null()) return "json parse error";
  if (!common.is_object()) return "json common not find or not object";
  if (!HasLinks(common[kLink])) return "json common link error";
  if (!HasLinks(common[kDefaultLinks])) return "json common default link error";
  if (ReadText(common[kLBS]).empty()) return "json common lbs url error";
  return nullptr;
}

}  // namespace

std::optional<LBSAnswer> ReadLBSAnswer(const std::string& rsp) {
  std::string error;
  const Json json = Json::parse(rsp, error);
  if (!Has(json, kCommon)) return std::nullopt;
  const Json& common = json[kCommon];

  LBSAnswer answer;
  answer.link = ReadLinks(common[kLink]);
  answer.default_link = ReadLinks(common[kDefaultLinks]);
  answer.lbs = ReadText(common[kLBS]);
  answer.lbs_backup = ReadBackupLBS(common["lbs.backup"]);
  answer.zeb_dl = ReadText(common["zebdl"]);
  answer.zeb_dl_list = ReadJsonText(common, "zebdls");
  answer.zeb_list = ReadJsonText(common, "zeb");
  answer.name = ReadText(common["name"]);
  answer.desc = ReadText(common["desc"]);
  if (Has(common, "msg.stat.enable")) {
    answer.msg_stat_enable = common["msg.stat.enable"].bool_value();
  }
  answer.ttl = ReadTtl(common, answer.desc);
  answer.report = ReadReport(common["report"]);
  return answer;
}

bool CheckLBSAnswer(const std::string& rsp, std::string& error) {
  std::string parse_error;
  const char* const fault = FindFault(Json::parse(rsp, parse_error));
  if (fault != nullptr) error = fault;
  return fault == nullptr;
}

std::vector<std::string> ReadBackupLBS(const Json& list) {
  std::vector<std::string> urls;
  for (const Json& item : list.array_items()) {
    if (urls.size() == kMostBackupLBS) break;
    urls.push_back(ReadText(item));
  }
  return urls;
}

bool FitsLBSTextBuffer(const std::string& text) { return text.size() < kLBSTextBufferSize; }

}  // namespace zo_tarvel
