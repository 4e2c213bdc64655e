#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "base/lock/recursive_mutex.h"
#include "base/thread/base_thread.h"
#include "network/http/http_requestor.h"
#include "network/http/trust_settings.h"

namespace test_support {

// A second engine: each transfer blocks a thread of its own, and no connection is used twice. It
// shows how little an engine needs. With the built-in one it shares the rules on URLs and
// redirects, and what receives an answer from libcurl.
//
// It leaves out what is no part of the interface: a pool of connections, HTTP/2 and proxies.
//
// Threads: Send may be called from any. A completion runs on its transfer's thread.
// Ownership: owns the threads. The destructor ends the transfers and waits up to a second, since
// libcurl asks no sooner whether to go on.
class EasyRequestor final : public WQBASE::network::IHttpRequestor {
 public:
  explicit EasyRequestor(WQBASE::network::TrustSettings trust);
  ~EasyRequestor() override;

  void Send(std::shared_ptr<const WQBASE::network::HttpRequest> request,
            Completion completion) override ZO_EXCLUDES(lock_);
  void RetireConnections() override {}  // There are none to keep.

 private:
  void CarryOut(const WQBASE::network::HttpRequest& request, const Completion& completion);
  void JoinEndedThreads() ZO_REQUIRES(lock_);

  const WQBASE::network::TrustSettings trust_;
  std::atomic<bool> ending_{false};

  zo_base::_thread_recursive_mutex lock_;
  std::vector<std::shared_ptr<zo_base::BaseThread>> threads_ ZO_GUARDED_BY(lock_);
};

}  // namespace test_support
