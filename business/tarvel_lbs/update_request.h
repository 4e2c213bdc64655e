#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "business/tarvel_lbs/client_callback.h"
#include "business/tarvel_lbs/lbs_answer.h"
#include "business/tarvel_lbs/lbs_settings.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

// Where the LBS server can be asked, and what narrows the choice.
struct LBSAddresses {
  std::vector<std::string> urls;  // In the order of the attempts; only http and https ones count.
  std::string def_lbs_host;       // Name for IP literals when the first URL has no name.
  std::int32_t family = kEMAddressFamilyAny;  // IP literals of the other one are left out.
  bool only_https = false;
};

// The entries of one request, each with the query added.
std::vector<UrlEntry> MakeLBSUrlEntries(const LBSAddresses& addresses, const std::string& query);

// One update from its begin to its end: what is asked, and the verdict on each answer.
//
// Threads: Check runs on the agent's work thread, as do all readers of its outcome. Ownership: the
// callbacks of the HTTP request share it.
class UpdateRequest {
 public:
  using Verdict = MultipleURLHttpRequest::CheckCallbackResult;
  using Collector = ClientCallback<RequestErrorCollector>::Pair;

  // An answer counts only as long as the business token is `token`.
  UpdateRequest(zo_net::AddressFamily family, std::string token)
      : family(family), token(std::move(token)) {}

  // Has an entry for each of `urls` that can be asked. Without any it asks `lbs_main_addr`: an
  // answer that names no usable URL must not be the last one. Has no callbacks.
  MultipleURLHttpRequest ToHttpRequest(std::vector<std::string> urls, const std::string& account_id,
                                       const LBSSettings& settings,
                                       const _EnvironmentConfig& config) const;
  // Judges the answer of the URL of this index, after the client's collector has been told of it.
  // `body` is that of `record`.
  Verdict Check(std::int32_t index, const RequestErrorRecord& record, const std::string& body,
                const std::shared_ptr<_EnvironmentConfig>& config, const Collector& collector);

  const zo_net::AddressFamily family;
  const std::string token;
  // What Check has read of the good answer.
  std::optional<LBSAnswer> answer;

 private:
  std::string Query(const std::string& account_id, const LBSSettings& settings,
                    const _EnvironmentConfig& config) const;
  MultipleURLHttpRequestContext Context(const _EnvironmentConfig& config) const;
};

}  // namespace zo_tarvel
