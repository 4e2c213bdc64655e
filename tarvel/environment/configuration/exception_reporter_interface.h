#pragma once

#include <memory>

#include "base/thread/task_loop.h"

namespace zo_tarvel {

struct ExceptionDataDetails;

// Takes exception records over. Any thread.
class IExceptionDataReporter {
 public:
  // Sets the thread that hands records to the client: the agent's work thread, or null when it
  // doesn't run. The reporter holds it weakly.
  virtual void SetTaskPoster(std::shared_ptr<zo_base::ITaskPostor> poster) = 0;
  virtual void ReportException(const std::shared_ptr<ExceptionDataDetails>& details) = 0;
  virtual ~IExceptionDataReporter() = default;
};

}  // namespace zo_tarvel
