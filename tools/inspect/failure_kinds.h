#pragma once

#include <string>

#include "tools/inspect/requests.h"

namespace tarvel_inspect {

// What a failed attempt shows. A plain value.
struct FailureKind {
  std::string title;    // A sentence, or the begin of one: the subject and a full stop end it.
  std::string subject;  // The host, server or URL that was asked.
  std::string advice;
};

// `other_host` is the name behind the URL, if that has another one. Empty strings for an attempt
// that has not failed.
FailureKind KindOf(const Attempt& attempt, const std::string& other_host);

}  // namespace tarvel_inspect
