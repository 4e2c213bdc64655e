#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarvel_inspect {

// What a client keeps between two runs. All values are plain, and all texts have no control bytes.
// Moments are milliseconds since 1970.

enum class CacheState { kNone, kUsable, kUnusable };

struct AnswerCache {
  CacheState state = CacheState::kNone;
  std::string problem;       // Why it is unusable.
  std::string name;          // What the server calls it.
  bool is_local = false;     // Made from the settings; no server has answered.
  std::string settings_url;  // The LBS URL of the settings that it was asked for with.
  std::string next_url;      // The LBS URL that the answer names.
  std::vector<std::string> backup_urls;
  std::string family;  // Of the update that brought it: "any", "IPv4" or "IPv6".
  std::int64_t written_at = 0;
  std::int64_t expires_at = 0;     // 0 when the file doesn't say.
  std::vector<std::string> links;  // In the order of their use.
  std::vector<std::string> default_links;
};

struct ServerCache {
  CacheState state = CacheState::kNone;
  std::string problem;
  std::string host;                  // Name of the service.
  std::vector<std::string> servers;  // "https://192.0.2.53:443".
  std::int64_t written_at = 0;
  std::int64_t expires_at = 0;
};

struct CachedHost {
  std::string host;
  std::vector<std::string> addresses;
  std::string grade;  // What a client that starts now makes of it: "good", "stale", "expired".
  std::int64_t expires_at = 0;
};

struct HostCache {
  CacheState state = CacheState::kNone;
  std::string problem;
  std::int64_t written_at = 0;
  std::vector<CachedHost> hosts;
};

struct Caches {
  AnswerCache answer;
  ServerCache servers;
  HostCache hosts;
};

// Reads the caches in a client's directory, as they are at the moment `now`. Changes nothing.
Caches ReadCaches(const std::string& directory, std::int64_t now);

}  // namespace tarvel_inspect
