#pragma once

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "network/curl/answer_collector.h"
#include "network/curl/curl_library.h"
#include "network/curl/hop.h"
#include "network/http/http_requestor.h"
#include "network/http/trust_settings.h"

namespace WQBASE::network {

// One request with its hops and its response.
//
// Threads: made on the sender's thread, then used on the transport's only. That thread also makes
// and frees the easy handles, since threads that free each other's memory contend for it.
// Ownership: by the transport; owns the easy handle. A transfer that is destroyed without Complete
// calls nobody.
class Transfer {
 public:
  using Lines = std::unique_ptr<curl_slist, void (*)(curl_slist*)>;

  Transfer(std::shared_ptr<const HttpRequest> request, IHttpRequestor::Completion completion,
           const TrustSettings& trust);
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // Whether there is another hop. Otherwise the response is ready for Complete.
  bool NeedsHop() const { return needs_hop_; }
  // A handle for that hop, to be run next; null when memory is short.
  CURL* BeginHop();
  // Takes the result of the hop, whose handle ends with it.
  void FinishHop(CURLcode result);
  // Ends the transfer without an answer.
  void Fail(const std::string& error) { End(0, error); }
  // Whether a pooled connection stayed silent until the time-out. Its path may be dead, and libcurl
  // would use it again.
  bool connection_went_silent() const { return connection_went_silent_; }

  // Calls the completion, once.
  void Complete();

 private:
  using Clock = std::chrono::steady_clock;

  void TakeResult(CURLcode result);
  static int OnAttempt(void* transfer, char*, char*, int, int);
  void Prepare(CURL* easy);
  void PrepareVerb(CURL* easy);
  void PrepareHeaders(CURL* easy);
  void PrepareServer(CURL* easy);
  void PrepareTrust(CURL* easy);
  bool HeardNothingOnPooledConnection() const;
  bool MayRepeat(CURLcode result) const;
  bool Follows(long status, std::string& error);
  void EndWithAnswer(long status, const std::string& error);
  void EndBroken(CURLcode result, long status);
  void TakeAnswer();
  void End(long status, const std::string& error);

  const std::shared_ptr<const HttpRequest> request_;
  const IHttpRequestor::Completion completion_;
  const TrustSettings trust_;
  const Clock::time_point deadline_;
  std::shared_ptr<HttpResponse> response_ = std::make_shared<HttpResponse>();  // Until Complete.

  Hop hop_;
  std::optional<PinnedServer> pinned_;
  bool needs_hop_ = true;
  int redirects_ = 0;
  bool repeated_ = false;  // This hop runs again, since its pooled connection was dead.
  bool connection_went_silent_ = false;
  int attempts_ = 0;  // How often libcurl has sent this hop's request.

  // The easy handle points to these.
  Lines header_lines_{nullptr, curl_slist_free_all};
  Lines connect_to_{nullptr, curl_slist_free_all};
  char error_[CURL_ERROR_SIZE] = {};
  AnswerCollector answer_;
  EasyHandle easy_{nullptr, curl_easy_cleanup};  // Of the hop under way.
};

}  // namespace WQBASE::network
