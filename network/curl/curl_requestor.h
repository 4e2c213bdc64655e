#pragma once

#include <memory>

#include "base/lock/recursive_mutex.h"
#include "network/http/http_requestor.h"
#include "network/http/trust_settings.h"

namespace WQBASE::network {

class TransportThread;

// The requestor on libcurl, with one thread for all transfers.
//
// The constructor starts the thread. While the system gives no thread or descriptors, each request
// attempts it again, and fails at once when that fails: its sender waits for a response.
//
// Threads: Send and RetireConnections may be called from any. Completions run on the transport's
// thread, one at a time, without a lock, and must not block it. That of a request that fails at
// once runs inside Send.
// Ownership: owns the thread. The destructor stops it and waits for it, but never for a server or a
// name server.
class CurlRequestor final : public IHttpRequestor {
 public:
  explicit CurlRequestor(TrustSettings trust);
  ~CurlRequestor() override;

  void Send(std::shared_ptr<const HttpRequest> request, Completion completion) override;
  void RetireConnections() override ZO_EXCLUDES(lock_);

 private:
  // Returns null when the system gives no thread or descriptors.
  std::shared_ptr<TransportThread> StartedThread() ZO_EXCLUDES(lock_);

  const TrustSettings trust_;

  zo_base::_thread_recursive_mutex lock_;
  std::shared_ptr<TransportThread> thread_ ZO_GUARDED_BY(lock_);
};

}  // namespace WQBASE::network
