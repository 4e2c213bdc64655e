#pragma once

#include <string>

#include "tools/cli/client_options.h"
#include "tools/inspect/report.h"

namespace tarvel_cli {

struct Directories {
  std::string data;  // Of the business.
  std::string log;
};

// Where the library keeps what belongs to a client of these options.
Directories DirectoriesOf(const ClientOptions& options);

// What this process has left so far in the directories of its options, with the life of its own
// only. May be called while the library runs.
tarvel_inspect::Report InspectOwnLife(const ClientOptions& options);

}  // namespace tarvel_cli
