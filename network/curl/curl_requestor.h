#pragma once

#include <memory>
#include <string>

#include "network/curl/transfer.h"
#include "network/http/http_requestor.h"

namespace WQBASE::network {

class TransportThread;

// The requestor on libcurl, with one thread for all transfers.
//
// Threads: Send and RetireConnections from any. Completions run on the transport's thread, one at a
// time, with no lock held; they must not block it.
// Ownership: owns the thread. The destructor ends it and waits for it, but never for a server or a
// name server.
class CurlRequestor final : public IHttpRequestor {
 public:
  // Null when the system gives no thread or descriptors.
  static std::shared_ptr<CurlRequestor> Create(TrustSettings trust);

  CurlRequestor(std::shared_ptr<TransportThread> thread, TrustSettings trust);
  ~CurlRequestor() override;

  void Send(std::shared_ptr<const HttpRequest> request, Completion completion) override;
  void RetireConnections() override;

 private:
  const std::shared_ptr<TransportThread> thread_;
  const TrustSettings trust_;
};

// Whose certificates are believed by the requestors that CreateHttpRequestor makes from now on: the
// authorities in a PEM file; an empty path for the system's. For programs of a developer that talk
// to servers of their own. Not for several threads at once.
void TrustAuthoritiesOf(std::string pem_file);

}  // namespace WQBASE::network
