#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>

#include "base/log/log_writer.h"
#include "tarvel/environment/environment_manager_storage.h"

namespace zo_tarvel {

// Brings the environment up and down.
//
// Threads: the gate calls it on the thread of the start or exit, under the storage's `start_lock`.
class EnvironmentManager {
 public:
  // `storage` outlives this.
  explicit EnvironmentManager(EnvironmentManagerStorage& storage) : storage_(storage) {}

  // Counts a start, the first one after the start sequence. Returns the id of the living object.
  [[nodiscard]] int StartOrCount(const _ZOTarvelEnvironmentSettings& settings);
  // Counts an exit. The last one stops and releases everything. Called only while started.
  void ExitEnvironment(const ExitRequest& request);

 private:
  void Start(const _ZOTarvelEnvironmentSettings& settings);
  std::int32_t CreateObject();
  void RemoveObject(std::int32_t id);
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

}  // namespace zo_tarvel
