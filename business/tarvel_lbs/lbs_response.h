#pragma once

#include "base/file/cached_key_value_file.h"
#include "business/tarvel_lbs/lbs_settings.h"
#include "tarvel/environment/configuration/environment_config_getter.h"

namespace zo_tarvel {

// Keys of the store, which are also those of the cache file.
namespace lbs_key {
inline constexpr char kRsp[] = "lbs_rsp";                 // The answer's text.
inline constexpr char kRootAddr[] = "root_lbs_addr";      // `lbs_main_addr` of that time.
inline constexpr char kIPVersion[] = "lbs_ip_version";    // Family of the request.
inline constexpr char kRuntimeLBS[] = "runntime_lbs";     // The LBS URL to use now.
inline constexpr char kBackupAddr[] = "lbs_backup_addr";  // JSON array.
inline constexpr char kDefLinkAddr[] = "def_link_addr";   // Only for readers of the file.
inline constexpr char kZebDl[] = "zeb_dl";
inline constexpr char kZebDlList[] = "zeb_dl_list";
inline constexpr char kZebList[] = "zeb_list";
inline constexpr char kName[] = "name";
inline constexpr char kDesc[] = "desc";
inline constexpr char kMsgStatInfo[] = "msg_stat_info";  // JSON object.
inline constexpr char kExpireTime[] = "expire_time";     // Wall clock, milliseconds.
}  // namespace lbs_key

// Stores the active record: the server's latest answer, or one that the library made from its
// settings. A file keeps it for the next process.
//
// Threads: Init comes first; afterwards any. Ownership: part of the service.
class LBSResponse : public EnvironmentConfigGetterBase {
 public:
  LBSResponse();

  // Loads the cached answer, or makes a local one. Always ends with a usable answer, and true.
  bool Init(const LBSSettings& settings);
  // Whether the file holds an answer at all.
  bool LoadCache(const LBSSettings& settings);
  // Whether it was asked for with settings like these.
  bool CheckCache(const LBSSettings& settings) const;
  // Builds an already expired answer from the settings, for a client that never reached the server.
  // Always returns true.
  bool GenerateLocalResponse(const LBSSettings& settings, bool save);
  // Whether `text` is an answer that can be used; if not, `error` says why. See ParsedLBSAnswer.
  bool CheckResponse(const std::string& text, std::string& error) const;

  bool SetResponse(const std::string& rsp, const std::string& root_addr,
                   const std::string& ip_version);
  // The family of the request, as text; IPv4 when the file has none.
  std::string GetIPVersion() const;
  void SetBackupLBS(const std::vector<std::string>& list);
  // The LBS URL to use now, and then the backups.
  std::vector<std::string> GetLBSUrls() const;
  // Wall clock, in milliseconds. Anything but a number reads as 0, long past.
  void SetExpireTime(std::int64_t ms);
  std::int64_t GetExpireTime() const;

  zo_base::CachedKeyValueFile store;
};

}  // namespace zo_tarvel
