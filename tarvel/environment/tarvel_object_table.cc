#include "tarvel/environment/tarvel_object_table.h"

#include <utility>

#include "base/object/object.h"
#include "tarvel/environment/tarvel_object_impl.h"

namespace zo_tarvel {

using zo_base::MutexLock;

TarvelObjectTable::~TarvelObjectTable() {
  ForEach(ReleaseObject);
  Clear();
}

void TarvelObjectTable::Insert(std::int32_t id, std::shared_ptr<IZOTarvelObject> object) {
  // A replaced object is destroyed after the lock is released: it may join a thread that looks for
  // it here.
  MutexLock lock(lock_);
  objects_[id].swap(object);
}

void TarvelObjectTable::ForEach(const Visitor& visitor) {
  if (!visitor) return;
  std::map<std::int32_t, std::shared_ptr<IZOTarvelObject>> visited;
  {
    MutexLock lock(lock_);
    visited = objects_;
  }
  for (const auto& [id, object] : visited) visitor(id, object);
}

std::shared_ptr<IZOTarvelObject> TarvelObjectTable::Find(std::int32_t id) {
  MutexLock lock(lock_);
  const auto entry = objects_.find(id);
  return entry == objects_.end() ? nullptr : entry->second;
}

void TarvelObjectTable::Erase(std::int32_t id) {
  decltype(objects_)::node_type erased;  // Destroyed after the lock is released.
  MutexLock lock(lock_);
  erased = objects_.extract(id);
}

void TarvelObjectTable::Clear() {
  std::map<std::int32_t, std::shared_ptr<IZOTarvelObject>> cleared;  // Destroyed likewise.
  MutexLock lock(lock_);
  cleared.swap(objects_);
}

void StopObject(std::int32_t, const std::shared_ptr<IZOTarvelObject>& object) {
  if (const auto impl = zo_base::DynamicPointerCast<ZOTarvelObjectImpl>(object)) impl->Stop();
}

void ReleaseObject(std::int32_t, const std::shared_ptr<IZOTarvelObject>& object) {
  if (const auto impl = zo_base::DynamicPointerCast<ZOTarvelObjectImpl>(object)) impl->Release();
}

}  // namespace zo_tarvel
