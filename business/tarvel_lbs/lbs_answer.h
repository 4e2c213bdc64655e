#pragma once

#include <optional>
#include <vector>

#include "base/json/json11.h"
#include "business/tarvel_lbs/link_address.h"
#include "tarvel/environment/configuration/environment_config.h"

namespace zo_tarvel {

// The "desc" of the record that the library makes from its settings.
inline constexpr char kGeneratedLocally[] = "generated locally";

// What an answer of the LBS server says. A plain value. Empty strings and lists say nothing. All
// strings are UTF-8. If the answer fits the client's buffer, so does each of its strings.
struct LBSAnswer {
  std::vector<LinkAddress> link;          // Only usable ones, 10,000 at most.
  std::vector<LinkAddress> default_link;  // Likewise.
  std::string lbs;
  std::vector<std::string> lbs_backup;
  std::string zeb_dl;
  std::string zeb_dl_list;  // JSON text, as the next one.
  std::string zeb_list;
  std::string name;
  std::string desc;
  std::optional<bool> msg_stat_enable;
  std::int64_t ttl = 0;  // Seconds. Negative: the life time stays as it was.
  StatisticSettings report;
};

struct ParsedLBSAnswer {
  // Nullopt unless the text is an object with a "common" member. Missing or mistyped members keep
  // their defaults.
  std::optional<LBSAnswer> answer;
  // What a server's answer lacks. Empty when it has usable addresses in "link" and "link.default",
  // and an LBS URL. The record made from the settings is used even when it lacks them.
  std::string error;
};

ParsedLBSAnswer ParseLBSAnswer(const std::string& rsp);

// The backup URLs in a JSON array, in their order. Of more than kMostBackupLBS the first ones: each
// may have to be waited for.
inline constexpr std::size_t kMostBackupLBS = 64;
std::vector<std::string> ReadBackupLBS(const zo_base::json11::Json& list);

// Whether a text is short enough for the interface.
bool FitsLBSTextBuffer(const std::string& text);

}  // namespace zo_tarvel
