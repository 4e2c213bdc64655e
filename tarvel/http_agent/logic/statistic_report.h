#pragma once

#include <functional>
#include <list>
#include <string>

#include "tarvel/environment/configuration/exception_reporter_interface.h"
#include "tarvel/http_agent/logic/statistic_item.h"

namespace zo_tarvel {

// Takes completed items over.
using StatisticReport = std::function<void(const std::list<_StatisticItem>&)>;

// The details of a failed sub request, as one JSON object: its addresses under the host's name, its
// headers, what came back, and what saved the request later.
std::string DescriptionOf(const _StatisticItem& item);

// Hands each item over as one exception record, in their order.
void ReportStatisticItems(const std::list<_StatisticItem>& items, IExceptionDataReporter& reporter);

}  // namespace zo_tarvel
