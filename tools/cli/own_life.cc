#include "tools/cli/own_life.h"

#include <unistd.h>

#include <memory>

#include "base/process/clock.h"
#include "tarvel/environment/configuration/environment_config.h"

namespace tarvel_cli {

Directories DirectoriesOf(const ClientOptions& options) {
  const auto config = std::make_shared<zo_tarvel::_EnvironmentConfig>();
  config->Load(EnvironmentSettings(options));
  return {config->appdata_path(), config->log_path()};
}

tarvel_inspect::Report InspectOwnLife(const ClientOptions& options) {
  const Directories directories = DirectoriesOf(options);
  tarvel_inspect::Filter filter;
  filter.process = getpid();
  return tarvel_inspect::Inspect(directories.data, directories.log, filter,
                                 zo_base::WallClockMilliseconds());
}

}  // namespace tarvel_cli
