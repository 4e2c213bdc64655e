#include "tarvel/environment/environment_manager_storage.h"

#include <utility>

#include "base/log/log.h"
#include "base/process/forked_child.h"
#include "base/process/no_destructor.h"
#include "tarvel/http_agent/http_tools/http_tool.h"

namespace zo_tarvel {
namespace {

using zo_base::MutexLock;

// Not destroyed: other threads may call an export while the process runs its exit handlers.
struct StorageSlot {
  zo_base::_thread_recursive_mutex lock;
  std::shared_ptr<EnvironmentManagerStorage> storage ZO_GUARDED_BY(lock);
};

zo_base::NoDestructor<StorageSlot>& Slot() {
  static zo_base::NoDestructor<StorageSlot> slot;
  return slot;
}

void ReplaceStorage(std::shared_ptr<EnvironmentManagerStorage> storage) {
  StorageSlot& slot = *Slot();
  MutexLock lock(slot.lock);
  slot.storage.swap(storage);
}

// Takes no lock: only a start or an exit writes what the child takes over, and none was under way.
void RenewStorage() ZO_NO_THREAD_SAFETY_ANALYSIS {
  // Never destroyed: another thread of the parent may have held its locks.
  static zo_base::NoDestructor<std::shared_ptr<EnvironmentManagerStorage>> of_parent;
  of_parent.Renew(Slot()->storage);
  Slot().Renew();
  Slot()->storage = std::make_shared<EnvironmentManagerStorage>();
  Slot()->storage->custom_log = (*of_parent)->custom_log;
}

std::shared_ptr<zo_base::ITQlogWriter> CustomLog() {
  const auto storage = GetStorage();
  if (storage == nullptr) return nullptr;
  MutexLock lock(storage->custom_log_lock);
  return storage->custom_log;
}

// The storage lives from the load of the image to its unload.
struct StorageLifetime {
  StorageLifetime() {
    zo_base::GetLogWriter();  // Creates the state that a forked child renews.
    zo_base::OnForkedChild(RenewStorage);
    ReplaceStorage(std::make_shared<EnvironmentManagerStorage>());
    zo_base::SetCustomLogGetter(CustomLog);
    SetHttpClientGetter(GetHttpClient);
  }
  ~StorageLifetime() {
    if (!zo_base::InForkedChild()) ReplaceStorage(nullptr);
  }
};
const StorageLifetime storage_lifetime;

}  // namespace

std::shared_ptr<EnvironmentManagerStorage> GetStorage() {
  if (zo_base::InForkedChild()) return nullptr;
  StorageSlot& slot = *Slot();
  MutexLock lock(slot.lock);
  return slot.storage;
}

std::shared_ptr<_EnvironmentConfig> GetConfig() {
  const auto storage = GetStorage();
  if (storage == nullptr) return nullptr;
  MutexLock lock(storage->published_lock);
  return storage->config_weak.lock();
}

std::shared_ptr<WQBASE::network::HttpClientEx> GetHttpClient() {
  const auto storage = GetStorage();
  if (storage == nullptr) return nullptr;
  MutexLock lock(storage->published_lock);
  return storage->http_client;
}

}  // namespace zo_tarvel
