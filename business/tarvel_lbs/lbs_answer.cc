#include "business/tarvel_lbs/lbs_answer.h"

#include <utility>

#include "base/process/clock.h"
#include "base/text/strings.h"
#include "base/text/utf8.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

using zo_base::kMillisecondsPerSecond;
using zo_base::json11::Json;

constexpr char kCommon[] = "common";

// Life time of an answer that names none, in seconds: two or three refreshes a day.
constexpr std::int64_t kDefaultTtl = 43'200;

// The most addresses taken from a list, more than a client attempts. A million would slow down
// every start and every call for one family.
constexpr std::size_t kMostLinks = 10'000;

bool Has(const Json& object, const char* key) { return object.object_items().count(key) != 0; }

// Returns an empty string for text that is no UTF-8. One such string would keep lbs.data from being
// saved.
std::string ReadText(const Json& value) {
  const std::string& text = value.string_value();
  return zo_base::IsUtf8(text) ? text : std::string();
}

// Returns an empty string for one that can't be a URL, and would write lines of its own into the
// log.
std::string ReadURL(const Json& value) {
  const std::string text = ReadText(value);
  return zo_base::IsOneWord(text) ? text : std::string();
}

std::vector<LinkAddress> ReadLinks(const Json& list) {
  std::vector<LinkAddress> links;
  for (const Json& item : list.array_items()) {
    if (links.size() == kMostLinks) break;
    LinkAddress address = SplitLinkAddress(ReadText(item));
    if (IsUsable(address)) links.push_back(std::move(address));
  }
  return links;
}

// The JSON text of a member of any type. It can be longer than the answer.
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

StatisticSettings ReadReport(const Json& report) {
  StatisticSettings settings;
  const std::string host = ReadText(report["host"]);
  if (!host.empty()) {
    settings.host = WQBASE::network::GetScheme(host).empty() ? "https://" + host : host;
  }
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

LBSAnswer ReadCommon(const Json& common) {
  LBSAnswer answer;
  answer.link = ReadLinks(common["link"]);
  answer.default_link = ReadLinks(common["link.default"]);
  answer.lbs = ReadURL(common["lbs"]);
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

// Empty when nothing is missing.
const char* FindFault(const LBSAnswer& answer) {
  if (answer.link.empty()) return "json common link error";
  if (answer.default_link.empty()) return "json common default link error";
  return answer.lbs.empty() ? "json common lbs url error" : "";
}

}  // namespace

ParsedLBSAnswer ParseLBSAnswer(const std::string& rsp) {
  std::string parse_error;
  const Json json = Json::parse(rsp, parse_error);
  if (json.is_null()) return {std::nullopt, "json parse error"};
  const Json& common = json[kCommon];
  ParsedLBSAnswer parsed;
  if (Has(json, kCommon)) parsed.answer = ReadCommon(common);
  parsed.error =
      common.is_object() ? FindFault(*parsed.answer) : "json common not find or not object";
  return parsed;
}

std::vector<std::string> ReadBackupLBS(const Json& list) {
  std::vector<std::string> urls;
  for (const Json& item : list.array_items()) {
    if (urls.size() == kMostBackupLBS) break;
    urls.push_back(ReadURL(item));
  }
  return urls;
}

bool FitsLBSTextBuffer(const std::string& text) { return text.size() < kLBSTextBufferSize; }

}  // namespace zo_tarvel
