#include <tarvel/tarvel.h>

#include <memory>

#include "base/object/object.h"
#include "base/thread/library_call.h"
#include "tarvel/environment/configuration/exception_data_reporter.h"
#include "tarvel/environment/environment_manager_storage.h"

namespace zo_tarvel {

using zo_base::LibraryCall;

int StartTarvelEnvironment(const _ZOTarvelEnvironmentSettings& settings) noexcept {
  const LibraryCall call;
  const auto storage = zo_base::InLogFunction() ? nullptr : GetStorage();
  return storage == nullptr ? 0 : storage->gate.Start(settings);
}

IZOTarvelObject* GetTarvelObject(int id) noexcept {
  const LibraryCall call;
  const auto storage = GetStorage();
  return storage == nullptr || id == 0 ? nullptr : storage->objects.Find(id).get();
}

void ExitTarvelEnvironment(int id) noexcept {
  const LibraryCall call;
  const auto exit = [id] {
    if (const auto storage = GetStorage()) storage->gate.Exit({.id = id});
  };
  if (zo_base::InLogFunction()) {
    zo_base::RunAfterLibraryCall(exit);
  } else {
    exit();
  }
}

void SetExceptionDataReporter(const ExceptionDataReporter& reporter) noexcept {
  const auto config = GetConfig();
  if (config == nullptr) return;
  const auto impl =
      zo_base::DynamicPointerCast<ExceptionDataReporterImpl>(config->GetExceptionReporter());
  if (impl) impl->SetCallback(reporter);
}

std::string TarvelExceptionDataToJsonString(const TarvelExceptionData& data) noexcept {
  return GetStorage() == nullptr ? std::string() : ExceptionDataToJson(data);
}

}  // namespace zo_tarvel
