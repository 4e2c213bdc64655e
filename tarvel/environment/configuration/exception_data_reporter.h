#pragma once

#include <tarvel/tarvel.h>

#include <memory>
#include <vector>

#include "base/lock/recursive_mutex.h"
#include "base/thread/task_loop.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/environment/configuration/exception_data.h"
#include "tarvel/environment/configuration/exception_reporter_interface.h"

namespace zo_tarvel {

// Holds exception records, without a limit, until the client has set its function, and then passes
// them to it one by one on the agent's work thread.
//
// Threads: any. Ownership: the configuration owns it and destroys with it the records that still
// wait.
class ExceptionDataReporterImpl : public IExceptionDataReporter,
                                  public EnvironmentConfigGetterBase {
 public:
  // Records without a living poster are lost.
  void SetTaskPoster(std::shared_ptr<zo_base::ITaskPostor> poster) override ZO_EXCLUDES(lock);
  void ReportException(const std::shared_ptr<ExceptionDataDetails>& details) override
      ZO_EXCLUDES(lock);

  // The first function stays. Null sets none.
  void SetCallback(ExceptionDataReporter function) ZO_EXCLUDES(lock);

 private:
  void ReportException_i(const std::shared_ptr<ExceptionDataDetails>& details,
                         ExceptionDataReporter function,
                         const std::shared_ptr<zo_base::ITaskPostor>& poster);

  zo_base::_thread_recursive_mutex lock;
  std::vector<std::shared_ptr<ExceptionDataDetails>> pending ZO_GUARDED_BY(lock);
  std::weak_ptr<zo_base::ITaskPostor> task_poster ZO_GUARDED_BY(lock);
  ExceptionDataReporter callback ZO_GUARDED_BY(lock) = nullptr;
};

}  // namespace zo_tarvel
