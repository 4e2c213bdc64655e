#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <typeinfo>
#include <utility>

#include "base/lock/recursive_mutex.h"

// The parts of a connection between a signal and a slot. Users call zo_base::ConnectAble.
namespace zo_sigslot {

// Identifies a signal: the address of a function that returns the signal's name.
using SignalId = const char* (*)();

// Takes a connection out of its table, given the signal and the connection's id.
using Disconnector = std::function<void(SignalId, std::uint64_t)>;

namespace detail {

class disconnecable {
 public:
  virtual ~disconnecable() = default;
  virtual void disconnect() = 0;
};

// The part of a slot that doesn't depend on its arguments: whether it is connected, and whether it
// is blocked. A new slot is connected and not blocked. Emitters read it on their threads.
class slot_state {
 public:
  explicit slot_state(disconnecable* owner) : owner_(owner) {}
  virtual ~slot_state() = default;

  virtual bool connected() const { return connected_.load(std::memory_order_acquire); }
  virtual void disconnect() { owner_->disconnect(); }
  bool blocked() const { return blocked_.load(std::memory_order_acquire); }

 private:
  // Nothing changes them after construction. The table's lock, under which a connection is
  // published, makes them visible.
  std::atomic<bool> connected_{true};
  std::atomic<bool> blocked_{false};
  disconnecable* const owner_;  // The connection that owns this slot.
};

template <class... Args>
class slot_base : public slot_state {
 public:
  using slot_state::slot_state;
  virtual void call_slot(const Args&... args) = 0;
  virtual void* get_object() { return nullptr; }
  virtual void* get_callable() = 0;
  virtual const std::type_info& get_callable_type() const = 0;
};

template <class F, class... Args>
class slot final : public slot_base<Args...> {
 public:
  template <class Callable>
  slot(disconnecable* owner, Callable&& callable)
      : slot_base<Args...>(owner), callable_(std::forward<Callable>(callable)) {}

  void call_slot(const Args&... args) override { callable_(args...); }
  void* get_callable() override { return &callable_; }
  const std::type_info& get_callable_type() const override { return typeid(F); }

 private:
  F callable_;
};

}  // namespace detail

// One connection with its one slot. Owned by the connection table, and by an emission under way.
template <class Lockable, class... Args>
class signal_singl_base final : public detail::disconnecable {
 public:
  // The slot refers to this object, so `slot` is set afterwards, before the connection is
  // published.
  signal_singl_base(SignalId signal_id, std::uint64_t connection_id, Disconnector disconnector)
      : signal_id(signal_id), connection_id(connection_id), disconnector(std::move(disconnector)) {}
  ~signal_singl_base() override {
    slot.reset();
    closed.store(true, std::memory_order_release);
  }

  // Takes this connection out of its table, once. An emission under way still calls the slot.
  void disconnect() override {
    Disconnector take_out;
    lock.lock();
    take_out.swap(disconnector);
    lock.unlock();
    if (take_out) take_out(signal_id, connection_id);
  }

  std::shared_ptr<detail::slot_base<Args...>> slot;
  const SignalId signal_id;
  const std::uint64_t connection_id;

 private:
  Lockable lock;
  Disconnector disconnector;  // Guarded by `lock`; empty once used.
  std::atomic<bool> closed{false};
};

// The handle of a connection, which lasts until it is disconnected or its emitter is destroyed.
// Dropping the handle doesn't disconnect. Safe to use at any time.
class connection {
 public:
  connection() = default;
  explicit connection(std::weak_ptr<detail::disconnecable> signal) : signal_(std::move(signal)) {}
  virtual ~connection() = default;
  connection(const connection&) = default;
  connection& operator=(const connection&) = default;

  void disconnect() {
    if (const auto signal = signal_.lock()) signal->disconnect();
  }

 private:
  std::weak_ptr<detail::disconnecable> signal_;
};

}  // namespace zo_sigslot
