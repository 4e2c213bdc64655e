#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <string>

#include "network/curl/answer_collector.h"
#include "network/curl/hop.h"
#include "network/http/http_response.h"
#include "network/http/trust_settings.h"

namespace test_support {

// One request with its redirects. Blocks the thread that runs it; one thread only.
class EasyTransfer {
 public:
  // All arguments outlive this. Setting `ending` on any thread ends the transfer.
  EasyTransfer(const WQBASE::network::HttpRequest& request,
               const WQBASE::network::TrustSettings& trust, const std::atomic<bool>& ending);

  WQBASE::network::HttpResponse Run();

 private:
  using Clock = std::chrono::steady_clock;

  void Exchange();
  void SetUp(CURL* easy);
  void SetVerb(CURL* easy);
  void SetTrust(CURL* easy);
  // Whether the answer led to another hop. Otherwise `error` may say why it didn't.
  bool FollowsRedirect(std::string& error);
  WQBASE::network::HttpResponse ResponseWith(const std::string& error);

  const WQBASE::network::HttpRequest& request_;
  const WQBASE::network::TrustSettings& trust_;
  const std::atomic<bool>& ending_;
  const Clock::time_point deadline_;

  WQBASE::network::Hop hop_;  // Changed by a redirect.
  std::optional<WQBASE::network::PinnedServer> pinned_;

  // The result of the last hop.
  WQBASE::network::AnswerCollector answer_;
  CURLcode result_ = CURLE_OK;
  long status_ = 0;
  std::string error_text_;
};

}  // namespace test_support
