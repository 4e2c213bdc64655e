#include <tarvel/tarvel.h>

#include <memory>

#include "base/thread/library_call.h"
#include "tarvel/environment/configuration/exception_data_reporter.h"
#include "tarvel/environment/environment_manager.h"

namespace zo_tarvel {

using zo_base::LibraryCall;

int StartTarvelEnvironment(const _ZOTarvelEnvironmentSettings& settings) noexcept {
  const LibraryCall call;
  return zo_base::InLogFunction() ? 0 : StartEnvironment(settings);
}

IZOTarvelObject* GetTarvelObject(int id) noexcept {
  const LibraryCall call;
  return FindObject(id);
}

void ExitTarvelEnvironment(int id) noexcept {
  const LibraryCall call;
  if (zo_base::InLogFunction()) {
    zo_base::RunAfterLibraryCall([id] { RequestExit({.id = id}); });
  } else {
    RequestExit({.id = id});
  }
}

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
