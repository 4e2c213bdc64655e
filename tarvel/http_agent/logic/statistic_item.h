#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

// One failed sub request, as it will be reported. All times are milliseconds, moments since 1970.
struct _StatisticItem {
  std::int32_t request_type = 0;
  std::string url;
  std::string host;              // The name to be resolved; empty for a URL on an IP literal.
  std::vector<std::string> ips;  // The addresses of the host.
  std::string app_key;
  std::string reserved_text;
  std::int64_t end_time = 0;
  std::int32_t code = 0;
  std::string error_message;
  std::int64_t duration = 0;
  std::map<std::string, std::string> request_header;
  std::map<std::string, std::string> response_header;
  std::string response_body;
  std::string trace_id;
  std::int32_t exception_category = 0;
  // The later answer that saved the request, if there was one.
  bool corrected = false;
  std::string corr_url;
  std::int64_t corr_start_time = 0;
  std::int64_t corr_duration = 0;
};

// How a sub request has ended. Refers to texts of its maker.
struct SubRequestResult {
  std::int32_t index = 0;  // Into the URLs of the request.
  std::uint64_t start_time = 0;
  std::int32_t code = 0;
  const std::string& headers;  // Lines of name, ":" and value, joined by "\r\n".
  const std::string& body;
};

_StatisticItem MakeStatisticItem(const MultipleURLHttpRequest& request,
                                 const SubRequestResult& result, const std::string& error_message,
                                 std::int64_t end_time);

}  // namespace zo_tarvel
