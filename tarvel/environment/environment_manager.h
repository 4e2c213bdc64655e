#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>

#include "base/log/log_writer.h"
#include "tarvel/environment/environment_manager_storage.h"

namespace zo_tarvel {

// Brings the environment up and down. Each operation runs under the storage's `start_lock`, on the
// thread of the start or exit.
class EnvironmentManager {
 public:
  // `storage` outlives this.
  explicit EnvironmentManager(EnvironmentManagerStorage& storage) : storage_(storage) {}

  // The start sequence, once per life of the environment.
  void Start(const _ZOTarvelEnvironmentSettings& settings);
  // Carries out one exit, and those that threads of the library had to queue.
  void CarryOutExit(const ExitRequest& request);
  void CarryOutQueuedExits();

 private:
  // One exit; the last one stops and releases everything.
  void ExitEnvironment(const ExitRequest& request);
  std::int32_t CreateObject();
  void RemoveObject(std::int32_t id);
  void PublishConfig();
  void SetUpLogging(zo_base::TarvelCustomLog::Function custom_log);
  void StartHttpClient();
  void StartHttpAgent();
  void ReleaseHttpAgent();
  void ReleaseHttpClient();
  void CloseLog();
  void Stop();  // Ends the threads.
  void Exit();  // Releases what they worked on.

  EnvironmentManagerStorage& storage_;
};

// What the exported functions do.
int StartEnvironment(const _ZOTarvelEnvironmentSettings& settings);
IZOTarvelObject* FindObject(std::int32_t id);
// Carries the exit out. On a thread of the library, and in a callback out of an exit, it may be
// left to the thread that is in a start or an exit at this moment.
void RequestExit(const ExitRequest& request);

}  // namespace zo_tarvel
