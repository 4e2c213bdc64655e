#pragma once

#include "tools/cli/client_files.h"
#include "tools/cli/client_options.h"
#include "tools/cli/printer.h"
#include "tools/cli/stop_signals.h"

namespace tarvel_cli {

// What every command needs while it runs. Created before the environment starts, destroyed after
// its exit.
struct CommandScope {
  // Writes the data directory to `options`. Throws std::runtime_error, as the members do.
  explicit CommandScope(ClientOptions& options) : directory(options), printer(options.json) {
    PrepareHttpDNS(options);
  }

  const StopSignals stop;
  const DataDirectory directory;
  Printer printer;
};

}  // namespace tarvel_cli
