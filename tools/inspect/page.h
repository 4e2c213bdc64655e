#pragma once

#include <string>
#include <vector>

#include "tools/inspect/report.h"

namespace tarvel_inspect {

// Returns one HTML page that shows the reports: each request is a timeline. The page needs no other
// file and loads nothing.
std::string ToPage(const std::vector<Report>& reports);

}  // namespace tarvel_inspect
