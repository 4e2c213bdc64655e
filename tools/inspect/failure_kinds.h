#pragma once

#include <string>

#include "tools/inspect/requests.h"

namespace tarvel_inspect {

// What a failed attempt shows. A plain value.
struct FailureKind {
  std::string title;  // A sentence about the host or URL that was asked.
  std::string advice;
};

// `host` is the name behind the URL. Empty texts for an attempt that has not failed.
FailureKind KindOf(const Attempt& attempt, const std::string& host);

}  // namespace tarvel_inspect
