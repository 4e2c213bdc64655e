#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/lock/recursive_mutex.h"
#include "base/lock/resettable_once.h"
#include "base/log/log_writer.h"
#include "network/http/http_client.h"
#include "tarvel/environment/configuration/environment_config.h"
#include "tarvel/environment/environment_gate.h"
#include "tarvel/environment/tarvel_object_table.h"
#include "tarvel/http_agent/logic/http_agent.h"

namespace zo_tarvel {

// All that a running environment consists of. One per loaded library, made before any export can
// run.
//
// Threads: any; `config` and `http_agent` under `start_lock` only. They carry no annotation: the
// lock is recursive and entered through a chain of calls. Order of locks: `start_lock`, then any
// other.
struct EnvironmentManagerStorage {
  std::atomic<bool> started{false};             // From the end of Start to the end of Exit.
  std::atomic<std::int32_t> start_count{0};     // Starts minus exits.
  std::atomic<std::int32_t> next_object_id{0};  // The last id given.
  zo_base::ResettableOnce once;                 // Guards the start sequence; set back at the exit.
  TarvelObjectTable objects;

  // Held by the thread of a start or exit throughout, so that they run one at a time.
  zo_base::_thread_recursive_mutex start_lock;
  std::shared_ptr<_EnvironmentConfig> config;
  std::shared_ptr<HttpAgent> http_agent;
  EnvironmentGate gate{*this};

  // What other threads read.
  zo_base::_thread_recursive_mutex published_lock;
  std::weak_ptr<_EnvironmentConfig> config_weak ZO_GUARDED_BY(published_lock);
  std::shared_ptr<WQBASE::network::HttpClientEx> http_client ZO_GUARDED_BY(published_lock);

  zo_base::_thread_recursive_mutex custom_log_lock;
  // The client's log function. It survives an exit.
  std::shared_ptr<zo_base::TarvelCustomLog> custom_log ZO_GUARDED_BY(custom_log_lock);
};

// Any thread. Null once the library is being unloaded, and in a child forked while it was at work.
std::shared_ptr<EnvironmentManagerStorage> GetStorage();

// Any thread. Null while no environment is up.
std::shared_ptr<_EnvironmentConfig> GetConfig();
std::shared_ptr<WQBASE::network::HttpClientEx> GetHttpClient();

}  // namespace zo_tarvel
