#include "tarvel/environment/configuration/exception_data_reporter.h"

#include "base/object/weakly.h"

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
    if (callback == nullptr) return pending.push_back(details);
    function = callback;
    poster = task_poster.lock();
  }
  ReportException_i(details, function, poster);
}

void ExceptionDataReporterImpl::ReportException_i(
    const std::shared_ptr<ExceptionDataDetails>& details, ExceptionDataReporter function,
    const std::shared_ptr<ITaskPostor>& poster) {
  if (poster == nullptr) return;
  poster->PostTask(zo_base::Weakly(GetEnvironmentConfig(),
                                   [details, function](const _EnvironmentConfig& config) {
                                     function(PublicRecordOf(*details, config.ExceptionUserInfo()));
                                   }));
}

}  // namespace zo_tarvel
