#include <tarvel/tarvel.h>

#include <memory>

#include "tarvel/environment/environment_manager.h"
#include "tarvel/environment/exception_data_reporter.h"

namespace zo_tarvel {

int StartTarvelEnvironment(const _ZOTarvelEnvironmentSettings& settings) noexcept {
  return StartEnvironment(settings);
}

IZOTarvelObject* GetTarvelObject(int id) noexcept { return FindObject(id); }

void ExitTarvelEnvironment(int id) noexcept { RequestExit({.id = id}); }

void SetExceptionDataReporter(const ExceptionDataReporter& reporter) noexcept {
  const auto config = GetConfig();
  if (config == nullptr) return;
  const auto impl =
      std::dynamic_pointer_cast<ExceptionDataReporterImpl>(config->GetExceptionReporter());
  if (impl) impl->SetCallback(reporter);
}

std::string TarvelExceptionDataToJsonString(const TarvelExceptionData& data) noexcept {
  return GetStorage() == nullptr ? std::string() : ExceptionDataToJson(data);
}

}  // namespace zo_tarvel
