#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>

#include "base/thread/thread_info.h"

namespace zo_base {

// A named thread. See BaseThread for what each operation does.
class IThread {
 public:
  virtual ~IThread() = default;
  virtual std::string GetName() = 0;
  virtual pthread_t GetThreadId() = 0;
  virtual std::uint64_t GetNumericThreadId() = 0;
  virtual bool IsRunning() = 0;
  virtual bool IsStopping() = 0;
  virtual void Start() = 0;
  virtual void Stop() = 0;
  virtual void Join() = 0;
  virtual void StartOnCurrentThread(const std::string& name) = 0;
  virtual bool IsCurrentThread() = 0;
  virtual void SetThreadInfo(const ThreadInfo& info) = 0;
  virtual void FillThreadInfo(ThreadInfo& info) = 0;
  virtual void ClearThreadInfo() = 0;
};

}  // namespace zo_base
