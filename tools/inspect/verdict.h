#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/inspect/caches.h"
#include "tools/inspect/lives.h"

namespace tarvel_inspect {

// A likely reason why a client got no fresh answer. A plain value.
struct Cause {
  std::string title;                  // A sentence.
  std::string advice;                 // What to try.
  std::int64_t count = 0;             // Of the attempts that it explains.
  std::vector<std::string> evidence;  // Lines of the log that speak for it; the latest ones.
};

// What one life of a client came to. A plain value.
struct Verdict {
  std::int32_t process = 0;
  bool has_fresh_answer = false;
  bool has_success = false;      // Any request got a good answer.
  std::string summary;           // Sentences.
  std::vector<Cause> causes;     // The likeliest first,
  std::int64_t more_causes = 0;  // and how many there are besides.
};

Verdict Judge(const Life& life, const Caches& caches);

}  // namespace tarvel_inspect
