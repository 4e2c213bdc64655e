#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarvel_inspect {

// All values here are plain. Moments are milliseconds since 1970. Texts come from a log, so they
// are cut and have no control bytes; URLs have no query, which holds the application key.

// One sub request.
struct Attempt {
  std::string url;
  std::int64_t start = 0;
  std::optional<std::int64_t> end;              // None: nobody saw it end.
  std::optional<std::int64_t> head_start_over;  // The next URL could start then.
  std::int32_t code = 0;                        // HTTP status, 0 for none. Valid with `end`.
  bool good = false;
  std::string reason;    // Why it was no good.
  std::string evidence;  // The log's line about that, with the URL.
  enum class Cause { kStart, kHeadStart, kFailure };
  Cause cause = Cause::kStart;   // Why it was started.
  std::int32_t cause_index = 0;  // Of the attempt that was slow or has failed.
};

// How a walk along URLs ended.
enum class Outcome {
  kUnfinished,
  kAnswered,
  kFailed,     // All URLs have failed.
  kStopped,    // The request no longer matters, such as after a change of the token.
  kNoNetwork,  // Nothing was sent.
  kNoURL,
};

struct Walk {
  std::int64_t start = 0;
  std::optional<std::int64_t> end;
  Outcome outcome = Outcome::kUnfinished;
  std::vector<std::string> urls;   // All that could be attempted.
  std::vector<std::string> hosts;  // One for each URL: the name behind it.
  std::vector<Attempt> attempts;   // The first ones of `urls`.
};

// One logical request.
struct Request {
  enum class Purpose { kLBS, kServers, kHosts, kOther };
  Purpose purpose = Purpose::kOther;
  std::string asked_hosts;      // For kHosts: with commas.
  std::int64_t head_start = 0;  // Milliseconds, as time_out.
  std::int64_t time_out = 0;
  bool may_use_httpdns = false;
  Walk first;
  // The second try, on the addresses that HTTPDNS has.
  std::optional<Walk> second;
  std::map<std::string, std::vector<std::string>> addresses;  // By host.
  bool no_address = false;  // HTTPDNS knows no address, so there was no second try.

  const Walk& Last() const { return second ? *second : first; }
};

const char* NameOf(Outcome outcome);
// "LBS update", "HTTPDNS servers", "HTTPDNS addresses of lbs.example".
std::string PurposeOf(const Request& request);
// Returns the host that the walk's request is meant for when its URL names another one, such as an
// address. Otherwise returns an empty string.
std::string OtherHostOf(const Walk& walk, std::size_t index);

}  // namespace tarvel_inspect
