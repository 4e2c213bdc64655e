#pragma once

#include <memory>
#include <utility>

#include "business/tarvel_lbs/client_callback.h"
#include "business/tarvel_lbs/lbs_answer.h"
#include "business/tarvel_lbs/lbs_settings.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

// One update from its begin to its end: what is asked, and the verdict on each answer.
//
// Threads: Check runs on the agent's work thread, as do all readers of its outcome. Ownership: the
// callbacks of the HTTP request share it.
class UpdateRequest {
 public:
  using Verdict = MultipleURLHttpRequest::CheckCallbackResult;
  using Collector = ClientCallback<RequestErrorCollector>;

  // An answer counts only as long as the business token is `token`.
  UpdateRequest(zo_net::AddressFamily family, std::string token)
      : family(family), token(std::move(token)) {}

  // Asks those of `urls`, which has one at least, that can be asked. If none can, it asks
  // `lbs_main_addr`: an answer that names no usable URL must not be the last one. No callbacks.
  MultipleURLHttpRequest ToHttpRequest(const std::vector<std::string>& urls,
                                       const std::string& account_id, const LBSSettings& settings,
                                       const _EnvironmentConfig& config) const;
  // Tells the client's collector of an answer, and judges it. `index`: of its URL. `body`: that of
  // `record`.
  Verdict Check(std::int32_t index, const RequestErrorRecord& record, const std::string& body,
                const std::shared_ptr<_EnvironmentConfig>& config, const Collector& collector);

  const zo_net::AddressFamily family;
  const std::string token;
  // What Check has read of the good answer.
  std::optional<LBSAnswer> answer;

 private:
  std::vector<UrlEntry> MakeEntries(const std::vector<std::string>& urls, const std::string& query,
                                    const std::string& def_lbs_host, bool only_https) const;
};

}  // namespace zo_tarvel
