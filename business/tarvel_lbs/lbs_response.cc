#include "business/tarvel_lbs/lbs_response.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <system_error>

#include "base/json/json11.h"
#include "base/log/log.h"
#include "base/process/filesystem.h"
#include "base/text/numbers.h"
#include "business/tarvel_lbs/lbs_answer.h"

namespace zo_tarvel {
namespace {

using zo_base::ReadNumber;
using zo_base::json11::Json;
using zo_base::json11::ToJson;

constexpr std::int32_t kUnknownFamily = -1;

std::string LocalAnswer(const LBSSettings& settings, std::int32_t family) {
  const std::string& default_link =
      family == kEMAddressFamilyIPv6 ? settings.default_link_ipv6 : settings.default_link;
  const Json::object common{
      {"link", ToJson(settings.link_list)},
      {"link.default", Json::array{default_link}},
      {"lbs", settings.lbs_main_addr},
      {"lbs.backup", ToJson(settings.lbs_backup_addrs)},
      {"zeb", Json::array(std::begin(kDefaultObjectStorageServers),
                          std::end(kDefaultObjectStorageServers))},
      {"zebdl", kDefaultObjectStorageUrl},
      {"ttl", 0},
      {"desc", kGeneratedLocally},
      {"zebdls", Json::array{kDefaultObjectStorageUrl}},
      {"msg.stat.enable", false},
  };
  return Json(Json::object{{"common", common}}).dump();
}

// Whether the store has a use for an entry of the file.
bool CanBeUsed(const std::string& key, const std::string& value) {
  constexpr std::string_view kKeys[] = {
      lbs_key::kRsp,        lbs_key::kRootAddr,    lbs_key::kIPVersion, lbs_key::kRuntimeLBS,
      lbs_key::kBackupAddr, lbs_key::kDefLinkAddr, lbs_key::kZebDl,     lbs_key::kZebDlList,
      lbs_key::kZebList,    lbs_key::kName,        lbs_key::kDesc,      lbs_key::kMsgStatInfo,
      lbs_key::kExpireTime};
  return std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys) &&
         FitsLBSTextBuffer(value);
}

}  // namespace

LBSResponse::LBSResponse() : store(CanBeUsed) {}

bool LBSResponse::Init(const LBSSettings& settings) {
  std::string error;
  const bool usable =
      LoadCache(settings) && CheckCache(settings) && CheckResponse(store.Get(lbs_key::kRsp), error);
  // A file that can't be read just now may hold a good answer for the next start.
  return usable || GenerateLocalResponse(settings, store.was_read());
}

bool LBSResponse::LoadCache(const LBSSettings&) {
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) return false;
  const std::string directory = config->appdata_path() + "lbs/";
  std::error_code ignored;  // Without the directory the load finds no file.
  zo_base::filesystem::create_directories(directory, ignored);
  store.Load(directory + "lbs.data");
  return !store.Get(lbs_key::kRsp).empty() && !store.Get(lbs_key::kRootAddr).empty() &&
         !store.Get(lbs_key::kRuntimeLBS).empty();
}

// An answer for any family suits every one.
bool LBSResponse::CheckCache(const LBSSettings& settings) const {
  const std::int32_t cached = ReadNumber(GetIPVersion(), kUnknownFamily);
  const std::int32_t family = settings.addr_family;
  if (family != kEMAddressFamilyAny && cached != kEMAddressFamilyAny && family != cached) {
    ZO_LOG << "[lbs] Load lbs cache address family changed check fail cache :" << cached
           << "  setting :" << family;
    return false;
  }
  return store.Get(lbs_key::kRootAddr) == settings.lbs_main_addr;
}

bool LBSResponse::GenerateLocalResponse(const LBSSettings& settings, bool save) {
  // Clear only the memory: a reader of the file finds the old answer or the new one. Don't read the
  // file back: another process may have written it meanwhile.
  store.Clear(false);
  const std::int32_t family = settings.addr_family;
  SetResponse(LocalAnswer(settings, family), settings.lbs_main_addr, std::to_string(family));
  store.Set(lbs_key::kRuntimeLBS, settings.lbs_main_addr);
  if (save) store.Save();
  return true;
}

bool LBSResponse::CheckResponse(const std::string& text, std::string& error) const {
  const std::string fault = ParseLBSAnswer(text).error;
  if (!fault.empty()) error = fault;
  return fault.empty();
}

bool LBSResponse::SetResponse(const std::string& rsp, const std::string& root_addr,
                              const std::string& ip_version) {
  store.Set(lbs_key::kRsp, rsp);
  store.Set(lbs_key::kRootAddr, root_addr);
  store.Set(lbs_key::kIPVersion, ip_version);
  return true;
}

std::string LBSResponse::GetIPVersion() const {
  return store.Get(lbs_key::kIPVersion, std::to_string(kEMAddressFamilyIPv4));
}

void LBSResponse::SetBackupLBS(const std::vector<std::string>& list) {
  store.Set(lbs_key::kBackupAddr, ToJson(list).dump());
}

std::vector<std::string> LBSResponse::GetLBSUrls() const {
  std::string error;
  auto urls = ReadBackupLBS(Json::parse(store.Get(lbs_key::kBackupAddr), error));
  urls.insert(urls.begin(), store.Get(lbs_key::kRuntimeLBS));
  return urls;
}

void LBSResponse::SetExpireTime(std::int64_t ms) {
  store.Set(lbs_key::kExpireTime, std::to_string(ms));
}

std::int64_t LBSResponse::GetExpireTime() const {
  return ReadNumber<std::int64_t>(store.Get(lbs_key::kExpireTime), 0);
}

}  // namespace zo_tarvel
