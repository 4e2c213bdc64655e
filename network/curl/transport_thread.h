#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "base/process/open_file.h"
#include "base/thread/base_thread.h"
#include "network/curl/connection_pool.h"
#include "network/curl/transfer.h"

namespace WQBASE::network {

// Carries out all transfers of a requestor, and calls their completions one at a time.
//
// Threads: Submit and RetireConnections may be called from any thread. The thread itself waits for
// nothing but its sockets.
// Ownership: see BaseThread; owns the transfers. Those left at its end are dropped without a
// completion.
class TransportThread : public zo_base::BaseThread {
 public:
  TransportThread();
  ~TransportThread() override;

  // Whether the constructor got its descriptors. Otherwise this must not be started.
  [[nodiscard]] bool usable() const;

  void Submit(std::unique_ptr<Transfer> transfer) ZO_EXCLUDES(lock_);
  // Later transfers use new connections. Those in flight keep theirs.
  void RetireConnections() ZO_EXCLUDES(lock_);

  void Run() override;
  std::shared_ptr<std::function<void()>> CreateStopClosure() override;

 private:
  struct InFlight {
    std::unique_ptr<Transfer> transfer;
    ConnectionPool* pool;  // One of `pools_`.
  };

  void WakeUp() const;

  // Called on the thread itself only, ReplacePool in the constructor too.
  void TakeOrders() ZO_EXCLUDES(lock_);
  void ReplacePool();
  void RunDueTimers();
  void WaitForEvents();
  int WaitTimeout() const;
  void Dispatch(std::uint64_t source, std::uint32_t events);
  void FinishTransfers();
  void OnHopFinished(CURL* easy, CURLcode result);
  void StartHop(std::unique_ptr<Transfer> transfer);
  void CompleteEnded();
  void DropDrainedPools();
  void DropAll();  // Also called by the destructor.

  const zo_base::FileDescriptor epoll_;
  const zo_base::FileDescriptor wake_;  // An eventfd.
  const bool watches_wake_;
  const std::shared_ptr<std::function<void()>> wake_up_;

  zo_base::_thread_recursive_mutex lock_;
  std::vector<std::unique_ptr<Transfer>> submitted_ ZO_GUARDED_BY(lock_);
  bool retire_wanted_ ZO_GUARDED_BY(lock_) = false;
  bool woken_ ZO_GUARDED_BY(lock_) = false;  // Since the last TakeOrders().

  // Not locked: used on the thread itself only, once it runs.
  std::uint32_t last_pool_id_ = 0;
  std::vector<std::unique_ptr<ConnectionPool>> pools_;  // New transfers go to the last one.
  std::unordered_map<CURL*, InFlight> in_flight_;
  std::vector<std::unique_ptr<Transfer>> ended_;  // Their completions haven't been called yet.
};

}  // namespace WQBASE::network
