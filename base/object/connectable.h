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

  // All that depends on a signal's argument types. The rest is compiled once for all signals.
  struct Signature {
    const std::type_info& table_type;
    ZOAny (*empty_table)();
    PublishedTable& (*published_in)(ZOAny& table);  // Raises BadZOAnyCast for other types.
  };
  template <class... Args>
  static const Signature& SignatureOf();

  zo_sigslot::Disconnector MakeDisconnector(const Signature& signature) const;
  zo_sigslot::connection Publish(SignalId signal, std::uint64_t id,
                                 const std::shared_ptr<zo_sigslot::detail::disconnecable>& added,
                                 const Signature& signature);
  static void Disconnect(Signals& table, SignalId signal, std::uint64_t connection_id,
                         const Signature& signature);

  const std::shared_ptr<Signals> signals = std::make_shared<Signals>();
  std::atomic<std::uint64_t> next_connection_id{0};
};

template <class... Args, class F>
zo_sigslot::connection ConnectAble::Connect(SignalId signal, F&& callable) {
  const std::uint64_t id = ++next_connection_id;
  const Signature& signature = SignatureOf<Args...>();
  auto added = std::make_shared<Connection<Args...>>(signal, id, MakeDisconnector(signature));
  added->slot = std::make_shared<zo_sigslot::detail::slot<std::decay_t<F>, Args...>>(
      added.get(), std::forward<F>(callable));
  return Publish(signal, id, added, signature);
}

template <class... Args>
const ConnectAble::Signature& ConnectAble::SignatureOf() {
  static constexpr Signature signature{
      typeid(TableOf<Args...>),
      [] { return ZOAny(TableOf<Args...>{std::make_shared<ConnectionTable>()}); },
      [](ZOAny& table) -> PublishedTable& { return ZOAnyCast<TableOf<Args...>>(table).published; }};
  return signature;
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

}  // namespace zo_base
