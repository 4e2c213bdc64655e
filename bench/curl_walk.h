#pragma once

#include <string>
#include <vector>

namespace tarvel_bench {

inline constexpr long kTimeOutMs = 7'000;    // For one URL.
inline constexpr long kHeadStartMs = 2'000;  // Until the next URL starts in parallel to a slow one.

// A good answer, by status and body.
bool IsGood(long status, const std::string& body);

// What an expert would write on libcurl's multi interface: the next URL starts when one has failed,
// and in parallel to one that is slow; the first good answer ends it. With a `doh_url`, names are
// resolved there. Returns whether there was a good answer.
bool WalkWithMulti(const std::vector<std::string>& urls, const std::string& doh_url);

// One URL after the other, each up to `tries` times with 1 s, then 2 s in between.
bool GetDownTheList(const std::vector<std::string>& urls, int tries);

}  // namespace tarvel_bench
