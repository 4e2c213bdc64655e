#pragma once

#include <vector>

#include "tools/backend/checked_json.h"
#include "tools/backend/lab/plan.h"

namespace tarvel_backend {

// Reads the member "timeline" of a lab's file. Returns the events in time order. Throws
// std::runtime_error, which names the place of the first mistake.
std::vector<Event> ReadTimeline(const CheckedJson& timeline, const std::vector<HostPlan>& hosts);

}  // namespace tarvel_backend
