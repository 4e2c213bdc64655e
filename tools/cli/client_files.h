#pragma once

#include <string>

#include "tools/cli/client_options.h"

namespace tarvel_cli {

// Returns the contents of a file of HTTPDNS servers in the form of the library's cache. Throws
// CLI::ValidationError, which parsers report, when it names no server.
std::string ReadServersFile(const std::string& path);

// The data directory of a client: the one in the options, or a temporary one that the destructor
// removes.
class DataDirectory {
 public:
  // Writes its path to the options. Throws std::runtime_error when the directory is not writable.
  explicit DataDirectory(ClientOptions& options);
  ~DataDirectory();
  DataDirectory(const DataDirectory&) = delete;
  DataDirectory& operator=(const DataDirectory&) = delete;

 private:
  std::string own_;  // The temporary directory; empty without one.
};

// Replaces the library's cached HTTPDNS servers with `httpdns_servers`, and sets the trusted
// authorities. Call it before the environment starts. Throws std::runtime_error.
void PrepareHttpDNS(const ClientOptions& options);

}  // namespace tarvel_cli
