#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <type_traits>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/object/any.h"
#include "base/object/signal_slot.h"

namespace zo_base {

using zo_sigslot::SignalId;

// Base of objects that emit signals.
//
// Slots run on the emitter's thread, in order of connection, with no lock held, so they may
// connect, disconnect and emit freely; a change has effect from the next emission. A signal's
// argument types are those of its first connection: other types raise BadZOAnyCast. Exceptions of a
// slot pass through Emit.
//
// Threads: any. Ownership: the object owns its connections and their slots.
class ConnectAble {
 public:
  ConnectAble() = default;
  virtual ~ConnectAble() { Disconnect(nullptr); }

  // Copies `callable`. Wrap one that refers to an object by ToWeakClosure, unless the emitter is
  // destroyed first.
  template <class... Args, class F>
  zo_sigslot::connection Connect(SignalId signal, F&& callable);

  template <class... Args>
  void Emit(SignalId signal, const std::type_identity_t<Args>&... args);

  // Drops all connections of one signal; of all signals when null.
  void Disconnect(SignalId signal);
  bool HasConnections(SignalId signal) const;

 private:
  template <class... Args>
  using Connection = zo_sigslot::signal_singl_base<_thread_recursive_mutex, Args...>;
  using ConnectionTable =
      std::map<std::uint64_t, std::shared_ptr<zo_sigslot::detail::disconnecable>>;
  // A published table never changes; a change publishes a new one, so an emission needs no copy.
  using PublishedTable = std::shared_ptr<const ConnectionTable>;
  // What a ZOAny of `signals` holds. All connections in it are Connection<Args...>.
  template <class... Args>
  struct TableOf {
    PublishedTable published;
  };

  // Shared with the connections, whose handles may outlive this object.
  struct Signals {
    mutable _thread_recursive_mutex lock;
    std::map<SignalId, ZOAny> signals ZO_GUARDED_BY(lock);
  };

  template <class... Args>
  static void Disconnect(Signals& table, SignalId signal, std::uint64_t connection_id);
  static PublishedTable With(const PublishedTable& table, std::uint64_t id,
                             std::shared_ptr<zo_sigslot::detail::disconnecable> added);
  static PublishedTable Without(const PublishedTable& table, std::uint64_t id);

  const std::shared_ptr<Signals> signals = std::make_shared<Signals>();
  std::atomic<std::uint64_t> next_connection_id{0};
};

template <class... Args, class F>
zo_sigslot::connection ConnectAble::Connect(SignalId signal, F&& callable) {
  const std::uint64_t id = ++next_connection_id;
  auto take_out = [table = std::weak_ptr<Signals>(signals)](SignalId from, std::uint64_t which) {
    if (const auto living = table.lock()) Disconnect<Args...>(*living, from, which);
  };
  auto added = std::make_shared<Connection<Args...>>(signal, id, std::move(take_out));
  added->slot = std::make_shared<zo_sigslot::detail::slot<std::decay_t<F>, Args...>>(
      added.get(), std::forward<F>(callable));

  PublishedTable replaced;
  MutexLock lock(signals->lock);  // Released before `replaced` is destroyed.
  const TableOf<Args...> none{std::make_shared<ConnectionTable>()};
  const auto entry = signals->signals.try_emplace(signal, none).first;
  auto& [published] = ZOAnyCast<TableOf<Args...>>(entry->second);
  replaced = std::exchange(published, With(published, id, added));
  return zo_sigslot::connection(added);
}

template <class... Args>
void ConnectAble::Emit(SignalId signal, const std::type_identity_t<Args>&... args) {
  PublishedTable table;
  {
    MutexLock lock(signals->lock);
    const auto entry = signals->signals.find(signal);
    if (entry == signals->signals.end()) return;
    table = ZOAnyCast<TableOf<Args...>>(entry->second).published;
  }
  for (const auto& [id, connection] : *table) {
    auto& slot = *static_cast<Connection<Args...>&>(*connection).slot;
    if (slot.connected() && !slot.blocked()) slot.call_slot(args...);
  }
}

template <class... Args>
void ConnectAble::Disconnect(Signals& table, SignalId signal, std::uint64_t connection_id) {
  PublishedTable replaced;  // Slots are destroyed after the lock is released.
  MutexLock lock(table.lock);
  const auto entry = table.signals.find(signal);
  // After a disconnect of all, the signal may have been connected anew with other types.
  if (entry == table.signals.end()) return;
  if (entry->second.type() != typeid(TableOf<Args...>)) return;
  auto& [published] = ZOAnyCast<TableOf<Args...>>(entry->second);
  replaced = std::exchange(published, Without(published, connection_id));
  if (published->empty()) table.signals.erase(entry);
}

}  // namespace zo_base
