#pragma once

namespace zo_tarvel {

// Where the library turns to when nobody has told it. Every default of a deployment stands in this
// file. The names lie under .invalid, so that a build which was not set up for a deployment calls
// nobody: an integrator puts the deployment's own values here.
inline constexpr char kDefaultStatisticsHost[] = "https://statistics.tarvel.invalid";

}  // namespace zo_tarvel
