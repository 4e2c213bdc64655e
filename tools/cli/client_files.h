#pragma once

#include <string>

#include "tools/cli/client_options.h"

namespace tarvel_cli {

// The data directory of a client: the one that was asked for, or one that goes at the end of the
// scope.
class DataDirectory {
 public:
  // Names itself in the options. Throws std::runtime_error when nothing can be kept there.
  explicit DataDirectory(ClientOptions& options);
  ~DataDirectory();
  DataDirectory(const DataDirectory&) = delete;
  DataDirectory& operator=(const DataDirectory&) = delete;

 private:
  std::string own_;  // Empty when it isn't ours to remove.
};

// Puts the servers of `httpdns_cache` where the library looks for them, in place of those that it
// has kept, and sets up whom it trusts. Before the environment starts. Throws std::runtime_error.
void PrepareHttpDNS(const ClientOptions& options);

}  // namespace tarvel_cli
