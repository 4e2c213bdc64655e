#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/lock/recursive_mutex.h"
#include "base/lock/resettable_once.h"
#include "base/log/log_writer.h"
#include "network/http/http_client.h"
#include "tarvel/environment/configuration/environment_config.h"
#include "tarvel/environment/exit_queue.h"
#include "tarvel/environment/tarvel_object_table.h"
#include "tarvel/http_agent/logic/http_agent.h"

namespace zo_tarvel {

// All that a running environment consists of. One per loaded library, made before any export can
// run. EnvironmentManager works on it.
//
// Order of locks: `start_lock`, then any of the others. `start_lock` is never taken while holding
// one of those.
struct EnvironmentManagerStorage {
  std::atomic<bool> started{
      false};  // From the end of the start sequence to the end of the release.
  std::atomic<std::int32_t> start_count{0};     // Starts minus exits.
  zo_base::ResettableOnce once;                 // Guards the start sequence; set back at the exit.
  zo_base::_thread_recursive_mutex start_lock;  // Starts and exits run one at a time.
  std::atomic<std::int32_t> next_object_id{0};  // The last id given.
  TarvelObjectTable objects;
  std::shared_ptr<_EnvironmentConfig> config;  // Under `start_lock`, as the agent.
  std::shared_ptr<HttpAgent> http_agent;

  // What threads other than that of a start or an exit look at.
  zo_base::_thread_recursive_mutex published_lock;
  std::weak_ptr<_EnvironmentConfig> config_weak ZO_GUARDED_BY(published_lock);
  std::shared_ptr<WQBASE::network::HttpClientEx> http_client ZO_GUARDED_BY(published_lock);

  // The client's log function. Never cleared by an exit.
  zo_base::_thread_recursive_mutex custom_log_lock;
  std::shared_ptr<zo_base::TarvelCustomLog> custom_log ZO_GUARDED_BY(custom_log_lock);

  // An exit is being carried out, by the holder of `start_lock`: it may be joining threads.
  std::atomic<bool> exit_in_progress{false};
  ExitQueue exits;
};

// Null once the library is being unloaded, and in a child forked off while it was at work. Any
// thread.
std::shared_ptr<EnvironmentManagerStorage> GetStorage();

// The configuration and the HTTP client of the environment that is up; null without one. Any
// thread.
std::shared_ptr<_EnvironmentConfig> GetConfig();
std::shared_ptr<WQBASE::network::HttpClientEx> GetHttpClient();

}  // namespace zo_tarvel
