#include "tools/cli/own_life.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "base/process/clock.h"
#include "tarvel/environment/configuration/environment_config.h"

namespace tarvel_cli {

tarvel_inspect::Report InspectOwnLife(const ClientOptions& options) {
  const auto config = std::make_shared<zo_tarvel::_EnvironmentConfig>();
  config->Load(EnvironmentSettings(options));
  tarvel_inspect::Filter filter;
  filter.process = getpid();
  return tarvel_inspect::Inspect(config->appdata_path(), config->log_path(), filter,
                                 zo_base::WallClockMilliseconds());
}

std::string WhyNothingComes(const tarvel_inspect::Report& report) {
  using tarvel_inspect::Outcome;
  using tarvel_inspect::Update;
  if (report.lives.empty() || report.lives.back().updates.empty()) return {};
  const tarvel_inspect::Life& life = report.lives.back();
  const bool something_runs = std::any_of(
      life.requests.begin(), life.requests.end(),
      [](const auto& request) { return request.Last().outcome == Outcome::kUnfinished; });
  const bool update_runs = life.updates_begun > static_cast<std::int64_t>(life.updates.size());
  if (something_runs || update_runs) return {};
  switch (life.updates.back().result) {
    case Update::Result::kStopped:
      return "the update has ended without a result: neither a server nor HTTPDNS has answered";
    case Update::Result::kNoURL:
      return "no LBS URL can be used with these settings";
    default:
      return {};
  }
}

}  // namespace tarvel_cli
