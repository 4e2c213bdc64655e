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

zo_sigslot::Disconnector ConnectAble::MakeDisconnector(const Signature& signature) const {
  return [table = std::weak_ptr<Signals>(signals), &signature](SignalId from, std::uint64_t which) {
    if (const auto living = table.lock()) Disconnect(*living, from, which, signature);
  };
}

zo_sigslot::connection ConnectAble::Publish(
    SignalId signal, std::uint64_t id,
    const std::shared_ptr<zo_sigslot::detail::disconnecable>& added, const Signature& signature) {
  PublishedTable replaced;
  MutexLock lock(signals->lock);  // Released before `replaced` is destroyed.
  const auto entry = signals->signals.try_emplace(signal, signature.empty_table()).first;
  PublishedTable& published = signature.published_in(entry->second);
  auto changed = std::make_shared<ConnectionTable>(*published);
  changed->emplace(id, added);
  replaced = std::exchange(published, std::move(changed));
  return zo_sigslot::connection(added);
}

void ConnectAble::Disconnect(Signals& table, SignalId signal, std::uint64_t connection_id,
                             const Signature& signature) {
  PublishedTable replaced;  // Slots are destroyed after the lock is released.
  MutexLock lock(table.lock);
  const auto entry = table.signals.find(signal);
  // After a disconnect of all, the signal may have been connected anew with other types.
  if (entry == table.signals.end() || entry->second.type() != signature.table_type) return;
  PublishedTable& published = signature.published_in(entry->second);
  auto changed = std::make_shared<ConnectionTable>(*published);
  changed->erase(connection_id);
  replaced = std::exchange(published, std::move(changed));
  if (published->empty()) table.signals.erase(entry);
}

}  // namespace zo_base
