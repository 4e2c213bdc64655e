#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "base/file/file_descriptor.h"
#include "base/thread/base_thread.h"
#include "network/curl/connection_pool.h"
#include "network/curl/transfer.h"

namespace WQBASE::network {

// Does all transfers of a requestor, and calls their completions one at a time.
//
// Threads: Submit and RetireConnections from any; the rest runs on the thread itself, which never
// waits for anything but its sockets.
// Ownership: see BaseThread. Transfers that are left when it ends are dropped unfinished.
class TransportThread : public zo_base::BaseThread {
 public:
  TransportThread();
  ~TransportThread() override;

  // False when the system gives no descriptors; then this must not be started.
  bool usable() const;

  void Submit(std::unique_ptr<Transfer> transfer) ZO_EXCLUDES(lock_);
  // The transfers in flight keep their connections; all later ones open new ones.
  void RetireConnections() ZO_EXCLUDES(lock_);

  void Run() override;
  std::shared_ptr<std::function<void()>> CreateStopClosure() override;

 private:
  struct InFlight {
    std::unique_ptr<Transfer> transfer;
    ConnectionPool* pool;  // One of `pools_`.
  };

  void WakeUp() const;
  void TakeOrders() ZO_EXCLUDES(lock_);
  void ReplacePool();
  void RunDueTimers();
  void WaitForEvents();
  int WaitTimeout() const;
  void Dispatch(std::uint64_t source, std::uint32_t events);
  void FinishTransfers();
  void OnHopFinished(CURL* easy, CURLcode result);
  void StartHop(std::unique_ptr<Transfer> transfer);
  bool TryHop(std::unique_ptr<Transfer>& transfer);
  void CompleteEnded();
  void DropDrainedPools();
  void DropAll();

  const zo_base::FileDescriptor epoll_;
  const zo_base::FileDescriptor wake_;  // An eventfd.
  bool watches_wake_ = false;
  const std::shared_ptr<std::function<void()>> wake_up_;

  zo_base::_thread_recursive_mutex lock_;
  std::vector<std::unique_ptr<Transfer>> submitted_ ZO_GUARDED_BY(lock_);
  bool retire_wanted_ ZO_GUARDED_BY(lock_) = false;
  bool woken_ ZO_GUARDED_BY(lock_) = false;  // Since the last look at the orders.

  // Not locked: touched only by the thread itself once it runs.
  std::uint32_t last_pool_id_ = 0;
  std::vector<std::unique_ptr<ConnectionPool>> pools_;  // New transfers go to the last one.
  std::unordered_map<CURL*, InFlight> in_flight_;
  std::vector<std::unique_ptr<Transfer>> ended_;  // To be completed.
};

}  // namespace WQBASE::network
