#include "tools/cli/own_life.h"

#include <unistd.h>

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

}  // namespace tarvel_cli
