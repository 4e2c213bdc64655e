#include <tarvel/tarvel.h>

#include "tarvel/environment/environment_manager.h"

namespace zo_tarvel {

int StartTarvelEnvironment(const _ZOTarvelEnvironmentSettings& settings) noexcept {
  return StartEnvironment(settings);
}

IZOTarvelObject* GetTarvelObject(int id) noexcept { return FindObject(id); }

void ExitTarvelEnvironment(int id) noexcept { RequestExit({.id = id}); }

// Nothing of this release makes exception records, so no environment has a reporter that could take
// the function, and no record has a text form.
void SetExceptionDataReporter(const ExceptionDataReporter&) noexcept {}

std::string TarvelExceptionDataToJsonString(const TarvelExceptionData&) noexcept { return {}; }

}  // namespace zo_tarvel
