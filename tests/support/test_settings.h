#pragma once

#include <tarvel/tarvel.h>

#include <cstring>

#include "tests/support/temp_directory.h"

namespace test_support {

// Returns settings whose files are in a directory that is removed at the end of the process.
// HTTPDNS is off: it would send requests of its own.
inline zo_tarvel::_ZOTarvelEnvironmentSettings TestSettings() {
  static const TempDirectory directory;
  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  std::strcpy(settings.appdata_path, directory.path().c_str());
  settings.enable_httpdns = -1;
  return settings;
}

}  // namespace test_support
