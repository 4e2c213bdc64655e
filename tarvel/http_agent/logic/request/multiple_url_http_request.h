#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tarvel/environment/configuration/request_timeouts.h"

namespace zo_tarvel {

// Who asks: the identity of a request's caller, for the headers and for reports.
struct MultipleURLHttpRequestContext {
  std::string business;
  std::string app_key;
  std::string sdk_version;
  std::int32_t sdk_version_code = 0;
  std::int32_t protocol_version = 0;  // Carried only.
  std::int32_t client_type = 0;
  std::string trace_id;                  // One for the whole logical request.
  std::int32_t exception_category = -1;  // Of GetExceptionCategory; not above 0: none.
};

// The headers that tell a server of the caller, each as name, ":" and value, sorted by name. What
// is empty in the context has none.
std::vector<std::string> MakeContextHeaders(const MultipleURLHttpRequestContext& context);

// One place to ask. `host` is the name that the URL stands for, and differs from the URL's own host
// when that has been rewritten to an IP literal; empty for the URL's own.
struct UrlEntry {
  std::string host;
  std::string url;
};

// One logical request, which any one of several URLs may answer.
//
// A plain value: every stage that it passes through has its own copy. The two callbacks are
// normally weak closures, so that a caller that has gone is not called.
struct MultipleURLHttpRequest {
  // The verdict on one answer.
  struct CheckCallbackResult {
    bool success = false;        // The answer is good, and ends the whole request.
    bool add_statistic = false;  // If not: it is to be reported.
    bool stop = false;           // If not: other URLs can't help.
    std::string error_message;   // For the report.
  };

  // Judges each answer, on the agent's work thread. Must be set.
  // `code` is the HTTP status, 0 when there was no answer; then `body` is the error text.
  // `headers` are lines of name, ":" and value, joined by "\r\n". `start_time`: when this sub
  // request was sent, in milliseconds since 1970.
  using CheckCallback = std::function<CheckCallbackResult(
      std::int32_t index, std::int32_t code, const std::string& url, const std::string& headers,
      const std::string& body, std::uint64_t start_time)>;

  // Gets the one result, on the agent's work thread: exactly once, unless the environment goes
  // down before. Headers and body are those of the answer that decided; may be empty.
  using ResultCallback = std::function<void(bool stop, bool success, const std::string& headers,
                                            const std::string& body)>;

  std::vector<std::string> headers;  // Each as name, ":" and value.
  MultipleURLHttpRequestContext context;
  std::string body;                                                    // Sent with a POST only.
  std::int32_t time_out = RequestTimeouts().timeout;                   // See there.
  std::int32_t multiple_time_out = RequestTimeouts().prefail_timeout;  // The same.
  std::string extra;                                                   // Carried only.
  std::int32_t request_type = 0;  // 0 is GET, any other value POST.
  std::vector<UrlEntry> urls;     // In the order of trying.
  CheckCallback check_callback;
  ResultCallback result_callback;
  bool use_http_dns_if_fail = true;  // When all have failed: resolve the hosts and try once more.
  zo_net::AddressFamily address_family = zo_net::kAddressFamilyAny;  // Of those addresses.
};

}  // namespace zo_tarvel
