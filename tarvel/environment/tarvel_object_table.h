#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

// The business objects, by id.
//
// Threads: any. Ownership: holds the environment's only reference to each object. Releases what is
// left before it is destroyed.
class TarvelObjectTable {
 public:
  using Visitor = std::function<void(std::int32_t id, const std::shared_ptr<IZOTarvelObject>&)>;

  ~TarvelObjectTable();

  void Insert(std::int32_t id, std::shared_ptr<IZOTarvelObject> object);  // Replaces.
  // Visits a copy of the table in order of id, not under the lock: a visitor may join a thread that
  // is looking for its object. An empty function does nothing.
  void ForEach(const Visitor& visitor);
  std::shared_ptr<IZOTarvelObject> Find(std::int32_t id);  // Null when unknown.
  void Erase(std::int32_t id);
  void Clear();

 private:
  zo_base::_thread_recursive_mutex lock_;
  std::map<std::int32_t, std::shared_ptr<IZOTarvelObject>> objects_ ZO_GUARDED_BY(lock_);
};

// Visitors for the exit.
void StopObject(std::int32_t id, const std::shared_ptr<IZOTarvelObject>& object);
void ReleaseObject(std::int32_t id, const std::shared_ptr<IZOTarvelObject>& object);

}  // namespace zo_tarvel
