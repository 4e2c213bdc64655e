#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "network/url/url.h"
#include "tarvel/environment/configuration/request_timeouts.h"

namespace zo_tarvel {

// The identity of a request's caller, for the headers and for reports.
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

// The headers that tell a server of the caller, each as name, ":" and value, sorted by name. An
// empty member of the context has no header.
std::vector<std::string> MakeContextHeaders(const MultipleURLHttpRequestContext& context);

// One place to ask. `host` is the name behind a URL whose own host has been rewritten to an IP
// literal; empty for the URL's own host.
struct UrlEntry {
  std::string host;
  WQBASE::network::Url url;
};

// One logical request, which any one of several URLs may answer.
//
// A plain value: every stage that it passes through has its own copy. The two callbacks are
// normally weak closures, so that a destroyed caller is not called.
struct MultipleURLHttpRequest {
  // The verdict on one answer.
  struct CheckCallbackResult {
    bool success = false;        // The answer is good, and ends the whole request.
    bool add_statistic = false;  // A failed answer is reported.
    bool stop = false;           // The request ends, since other URLs can't help.
    std::string error_message;   // For the report.
  };

  // Judges each answer, on the thread that the walk runs on: the agent's work thread, or the task
  // thread that sent the request without a post. Must be set.
  // `code` is the HTTP status; without an answer it is 0 and `body` is the error message.
  // `headers` are lines of name, ":" and value, joined by "\r\n". `start_time` is when this sub
  // request was sent, in milliseconds since 1970.
  using CheckCallback = std::function<CheckCallbackResult(
      std::int32_t index, std::int32_t code, const std::string& url, const std::string& headers,
      const std::string& body, std::uint64_t start_time)>;

  // Gets the one result, on the agent's work thread; on the caller's when the request cannot start.
  // Exactly once, unless the environment exits before. Headers and body are those of the answer
  // that decided. May be empty.
  using ResultCallback = std::function<void(bool stop, bool success, const std::string& headers,
                                            const std::string& body)>;

  std::vector<std::string> headers;  // Each as name, ":" and value.
  MultipleURLHttpRequestContext context;
  std::string body;  // Sent with a POST only.
  std::int32_t time_out = RequestTimeouts().timeout;
  std::int32_t multiple_time_out = RequestTimeouts().prefail_timeout;
  std::string extra;              // Carried only.
  std::int32_t request_type = 0;  // 0 is GET, any other value POST.
  std::vector<UrlEntry> urls;     // In the order of trying.
  CheckCallback check_callback;
  ResultCallback result_callback;
  bool use_http_dns_if_fail = true;  // On total failure: resolve the hosts and retry once.
  zo_net::AddressFamily address_family = zo_net::kAddressFamilyAny;  // Of those addresses.
};

}  // namespace zo_tarvel
