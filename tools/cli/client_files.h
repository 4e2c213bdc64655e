#pragma once

#include <string>

#include "tools/cli/client_options.h"

namespace tarvel_cli {

// The contents of a file that the user has named. Follows links. Empty when it can't be read.
std::string ReadUserFile(const std::string& path);

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

// Replaces the library's cached HTTPDNS servers with those of `httpdns_cache`, and sets the trusted
// authorities. Call it before the environment starts. Throws std::runtime_error.
void PrepareHttpDNS(const ClientOptions& options);

}  // namespace tarvel_cli
