#include "base/object/connectable.h"

namespace zo_base {

void ConnectAble::Disconnect(SignalId signal) {
  std::map<SignalId, ZOAny> dropped;  // Slots are destroyed after the lock is released.
  MutexLock lock(signals->lock);
  if (signal == nullptr) {
    dropped.swap(signals->signals);
  } else if (auto entry = signals->signals.extract(signal)) {
    dropped.insert(std::move(entry));
  }
}

bool ConnectAble::HasConnections(SignalId signal) const {
  MutexLock lock(signals->lock);
  return signals->signals.count(signal) != 0;
}

ConnectAble::PublishedTable ConnectAble::With(
    const PublishedTable& table, std::uint64_t id,
    std::shared_ptr<zo_sigslot::detail::disconnecable> added) {
  auto changed = std::make_shared<ConnectionTable>(*table);
  changed->emplace(id, std::move(added));
  return changed;
}

ConnectAble::PublishedTable ConnectAble::Without(const PublishedTable& table, std::uint64_t id) {
  auto changed = std::make_shared<ConnectionTable>(*table);
  changed->erase(id);
  return changed;
}

}  // namespace zo_base
