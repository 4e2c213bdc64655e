// Turns tarvel::Settings into the records of tarvel.h, or says which field can't be used. Included
// by client.h only.
#ifndef TARVEL_DETAIL_RECORDS_H_
#define TARVEL_DETAIL_RECORDS_H_

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace tarvel {
namespace detail {

struct Records {
  zo_tarvel::_ZOTarvelEnvironmentSettings environment;
  zo_tarvel::_ZOTarvelLBSSettings lbs;
};

// Whether the text is UTF-8. Overlong forms pass: the library's own check is the stricter one.
inline bool LooksLikeUtf8(const std::string& text) {
  int following = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool follows = byte >= 0x80 && byte < 0xc0;
    if (follows != (following > 0) || byte > 0xf4) return false;
    following = follows ? following - 1 : byte < 0x80 ? 0 : byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
  }
  return following == 0;
}

inline bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

// The part of an authority behind its last colon that isn't in brackets; empty without one.
inline std::string PortTextOf(const std::string& authority) {
  const std::size_t colon = authority.rfind(':');
  const std::size_t bracket = authority.rfind(']');
  if (colon == std::string::npos || (bracket != std::string::npos && bracket > colon)) return {};
  return authority.substr(colon + 1);
}

// Fills the records from settings. Keeps the first complaint.
class RecordFiller {
 public:
  // Returns the complaint; empty for usable settings.
  static std::string Fill(const Settings& from, Records& to) {
    RecordFiller filler;
    filler.FillEnvironment(from, to.environment);
    filler.FillLBS(from, to.lbs);
    return filler.complaint_;
  }
  // Makes the directories. Returns the complaint; empty when they can be used.
  static std::string MakeDirectories(const Settings& settings) {
    RecordFiller filler;
    filler.MakeDirectory("directory", settings.directory);
    if (!settings.log_directory.empty()) {
      filler.MakeDirectory("log_directory", settings.log_directory);
    }
    return filler.complaint_;
  }

 private:
  void FillEnvironment(const Settings& from, zo_tarvel::_ZOTarvelEnvironmentSettings& to) {
    if (from.token.empty()) Complain("token", "is empty: no server would be asked");
    if (from.directory.empty()) Complain("directory", "is empty");
    Put("token", from.token, to.business_token);
    Put("business", from.business, to.business_type);
    Put("client_version", from.client_version, to.business_version);
    Put("directory", from.directory, to.appdata_path);
    Put("log_directory", from.log_directory, to.log_path);
    to.sv = from.sdk_version;
    to.pv = from.protocol_version;
    to.client_type = from.client_type;
    to.enable_httpdns = from.httpdns ? 0 : -1;
    to.only_https_supported = from.https_only ? 1 : 0;
    to.try_http_request_on_netunav = from.ask_without_network ? 0 : -1;
    to.http_request_ip_preferred = from.prefer_ip_addresses ? 1 : 0;
    to.enable_exception_data_reporting = from.on_exception ? 1 : 0;
    CheckRange("request_timeout", from.request_timeout.count(), 1'000, 30'000);
    if (!complaint_.empty()) return;
    CheckRange("head_start", from.head_start.count(), 200, from.request_timeout.count() - 1);
    to.single_request_timeout = static_cast<std::int32_t>(from.request_timeout.count());
    to.single_request_prefail_timeout = static_cast<std::int32_t>(from.head_start.count());
    if (from.on_silence) CheckRange("silence", from.silence.count(), 1, kLongestSilence);
  }

  void FillLBS(const Settings& from, zo_tarvel::_ZOTarvelLBSSettings& to) {
    Put("lbs_url", from.lbs_url, to.lbs_main_addr);
    Put("lbs_host", from.lbs_host, to.def_lbs_host);
    Put("default_link", from.default_link, to.default_link);
    Put("default_link_ipv6", from.default_link_ipv6, to.default_link_ipv6);
    PutAll("backup_lbs_urls", from.backup_lbs_urls, to.lbs_backup_addrs);
    PutAll("links", from.links, to.link_list);
    CheckUrl("lbs_url", from.lbs_url, from.https_only);
    for (const auto& url : from.backup_lbs_urls) CheckUrl("backup_lbs_urls", url, from.https_only);
    for (const auto& link : from.links) CheckLink("links", link);
    if (!from.default_link.empty()) CheckLink("default_link", from.default_link);
    if (!from.default_link_ipv6.empty()) CheckLink("default_link_ipv6", from.default_link_ipv6);
    if (from.family < Family::kAny || from.family > Family::kIPv6) {
      Complain("family", "is none of the enumerators");
    }
    to.addr_family = static_cast<std::uint32_t>(from.family);
  }

  template <std::size_t kSize>
  void Put(const char* field, const std::string& text, char (&slot)[kSize]) {
    if (text.size() > kSize) {
      Complain(field, "has more than " + std::to_string(kSize) + " bytes");
    } else if (std::any_of(text.begin(), text.end(), IsControl)) {
      Complain(field, "contains a control character");
    } else if (!LooksLikeUtf8(text)) {
      Complain(field, "isn't UTF-8");
    } else {
      std::memcpy(slot, text.data(), text.size());  // The record is zeroed.
    }
  }

  template <std::size_t kCount, std::size_t kSize>
  void PutAll(const char* field, const std::vector<std::string>& texts,
              char (&slots)[kCount][kSize]) {
    if (texts.size() > kCount) {
      return Complain(field, "has more than " + std::to_string(kCount) + " entries");
    }
    for (std::size_t i = 0; i < texts.size(); ++i) Put(field, texts[i], slots[i]);
  }

  void CheckRange(const char* field, std::int64_t value, std::int64_t low, std::int64_t high) {
    if (value >= low && value <= high) return;
    Complain(field, "is " + std::to_string(value) + " ms, not " + std::to_string(low) + " to " +
                        std::to_string(high) + " ms");
  }

  // The library takes the built-in URL for an empty one.
  void CheckUrl(const char* field, const std::string& url, bool https_only) {
    const bool https = strncasecmp(url.c_str(), "https://", 8) == 0;
    const bool http = strncasecmp(url.c_str(), "http://", 7) == 0;
    if (url.empty() || https) return;
    if (!http) return Complain(field, "is no http or https URL: " + url);
    const std::string authority = url.substr(7, url.find_first_of("/?#", 7) - 7);
    if (https_only && !PortTextOf(authority).empty()) {
      Complain(field, "is an http URL with a port, which https_only leaves out: " + url);
    }
  }

  void CheckLink(const char* field, const std::string& link) {
    const std::string port = PortTextOf(link);
    const bool digits = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos;
    const int number = digits ? std::atoi(port.c_str()) : 0;
    if (number < 1 || number > 65'535 || port.size() + 1 == link.size()) {
      Complain(field, "is no \"host:port\": " + link);
    }
  }

  // As the library does, "\" counts as "/".
  void MakeDirectory(const char* field, std::string path) {
    if (!complaint_.empty()) return;
    std::replace(path.begin(), path.end(), '\\', '/');
    std::error_code failure;
    std::filesystem::create_directories(path, failure);
    if (failure || !std::filesystem::is_directory(path, failure)) {
      Complain(field, "can't be made: " + path);
    } else if (access(path.c_str(), W_OK | X_OK) != 0) {
      Complain(field, "can't be written to: " + path);
    }
  }

  void Complain(const char* field, const std::string& what) {
    if (complaint_.empty()) complaint_ = std::string(field) + ' ' + what;
  }

  static constexpr std::int64_t kLongestSilence = std::int64_t{24} * 60 * 60 * 1'000;

  std::string complaint_;
};

}  // namespace detail
}  // namespace tarvel

#endif  // TARVEL_DETAIL_RECORDS_H_
