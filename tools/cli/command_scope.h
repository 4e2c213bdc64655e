#pragma once

#include "tools/cli/client_files.h"
#include "tools/cli/client_options.h"
#include "tools/cli/printer.h"
#include "tools/cli/stop_signals.h"

namespace tarvel_cli {

// What every command stands on, for the length of its run: made before the environment starts, and
// there until that has ended.
struct CommandScope {
  // Names the data directory in `options`. Throws std::runtime_error, as its members do.
  explicit CommandScope(ClientOptions& options) : directory(options), printer(options.json) {
    PrepareHttpDNS(options);
  }

  const StopSignals stop;
  const DataDirectory directory;
  Printer printer;
};

}  // namespace tarvel_cli
