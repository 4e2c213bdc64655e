#include "tarvel/environment/configuration/exception_data_reporter.h"

#include <utility>

namespace zo_tarvel {

using zo_base::ITaskPostor;
using zo_base::MutexLock;

void ExceptionDataReporterImpl::SetTaskPoster(std::shared_ptr<ITaskPostor> poster) {
  MutexLock guard(lock);
  task_poster = poster;
}

void ExceptionDataReporterImpl::SetCallback(ExceptionDataReporter function) {
  if (function == nullptr) return;
  MutexLock guard(lock);
  if (callback != nullptr) return;
  callback = function;
  // Under the lock, so that no newer record overtakes them.
  const auto poster = task_poster.lock();
  for (const auto& details : pending) ReportException_i(details, function, poster);
  pending.clear();
}

void ExceptionDataReporterImpl::ReportException(
    const std::shared_ptr<ExceptionDataDetails>& details) {
  if (GetEnvironmentConfig() == nullptr || details->extension.empty()) return;
  ExceptionDataReporter function = nullptr;
  std::shared_ptr<ITaskPostor> poster;
  {
    MutexLock guard(lock);
    if (callback == nullptr) {
      pending.push_back(details);
      return;
    }
    function = callback;
    poster = task_poster.lock();
  }
  ReportException_i(details, function, poster);
}

void ExceptionDataReporterImpl::ReportException_i(
    const std::shared_ptr<ExceptionDataDetails>& details, ExceptionDataReporter function,
    const std::shared_ptr<ITaskPostor>& poster) {
  const std::weak_ptr<_EnvironmentConfig> weak_config = GetEnvironmentConfig();
  if (poster == nullptr || weak_config.expired()) return;
  poster->PostTask([details, weak_config, function] {
    const auto config = weak_config.lock();
    if (config == nullptr) return;
    function(PublicRecordOf(*details, config->ExceptionUserInfo()));
  });
}

}  // namespace zo_tarvel
