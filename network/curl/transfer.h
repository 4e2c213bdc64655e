#pragma once

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "network/curl/answer_collector.h"
#include "network/curl/hop.h"
#include "network/http/http_requestor.h"

namespace WQBASE::network {

// Whom a transfer trusts.
struct TrustSettings {
  std::string trust_store;     // PEM file of authorities; empty for the system's.
  bool verify_always = false;  // Every https transfer, not only those that name their host.
};

// One request on its way through its hops to its one response.
//
// Threads: made on the sender's thread, then used on the transport's only. Ownership: by the
// transport; it lends an easy handle for each hop. Dropped without Complete, it calls nobody.
class Transfer {
 public:
  using Lines = std::unique_ptr<curl_slist, void (*)(curl_slist*)>;

  Transfer(std::shared_ptr<const HttpRequest> request, IHttpRequestor::Completion completion,
           const TrustSettings& trust);
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // Whether there is a hop to be made. Otherwise only Complete is left to call.
  bool NeedsHop() const { return needs_hop_; }
  // Sets a fresh easy handle up for the hop. It must be reset before this goes.
  void Prepare(CURL* easy);
  // What the hop on `easy` came to.
  void FinishHop(CURL* easy, CURLcode result);
  // The transport could not even begin.
  void Fail(const std::string& error);
  // The transfer timed out on a pooled connection without hearing anything: its path may be dead,
  // and libcurl would go on using it.
  bool connection_went_silent() const { return connection_went_silent_; }

  // Calls the completion, once.
  void Complete();

 private:
  using Clock = std::chrono::steady_clock;

  static int OnAttempt(void* transfer, char*, char*, int, int);
  bool ChecksPeer() const;
  void PrepareVerb(CURL* easy);
  void PrepareHeaders(CURL* easy);
  void PrepareServer(CURL* easy);
  void PrepareTrust(CURL* easy);
  bool WithoutAnswerOnOldOne(CURL* easy) const;
  bool MayRepeat(CURL* easy, CURLcode result) const;
  bool Follows(long status, std::string& error);
  void Succeed(long status, const std::string& error);
  void Break(CURLcode result, long status);
  void TakeAnswer();
  void EndWith(long status, const std::string& error);

  const std::shared_ptr<const HttpRequest> request_;
  const IHttpRequestor::Completion completion_;
  const TrustSettings trust_;
  const Clock::time_point deadline_;

  Hop hop_;
  std::optional<PinnedServer> pinned_;
  bool needs_hop_ = true;
  int redirects_ = 0;
  bool repeated_ = false;  // This hop, after a pooled connection had turned out dead.
  bool connection_went_silent_ = false;
  int attempts_ = 0;  // How often libcurl has sent this hop's request.

  // What the easy handle points to.
  Lines header_lines_{nullptr, curl_slist_free_all};
  Lines connect_to_{nullptr, curl_slist_free_all};
  char error_[CURL_ERROR_SIZE] = {};
  AnswerCollector answer_;

  const std::shared_ptr<HttpResponse> response_ = std::make_shared<HttpResponse>();
};

}  // namespace WQBASE::network
