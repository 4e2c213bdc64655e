#include "tarvel/http_agent/logic/statistic_item.h"

#include <algorithm>

#include "base/text/strings.h"
#include "network/http/headers.h"

namespace zo_tarvel {
namespace {

std::map<std::string, std::string> HeaderMapOf(const std::vector<std::string>& lines) {
  std::map<std::string, std::string> headers;
  for (const auto& [name, value] : WQBASE::network::Headers::FromLines(lines)) {
    headers[name] = value;
  }
  return headers;
}

}  // namespace

_StatisticItem MakeStatisticItem(const MultipleURLHttpRequest& request,
                                 const SubRequestResult& result, const std::string& error_message,
                                 std::int64_t end_time) {
  _StatisticItem item;
  item.request_type = request.request_type;
  const auto& url = request.urls[result.index].url;
  item.url = url.text();
  if (url.is_on_ip()) {
    item.ips.emplace_back(url.host());
  } else {
    item.host = url.host();
  }
  item.app_key = request.context.app_key;
  item.end_time = end_time;
  item.code = result.code;
  item.error_message = error_message;
  item.duration = end_time - static_cast<std::int64_t>(result.start_time);
  item.request_header = HeaderMapOf(request.headers);
  item.response_header = HeaderMapOf(zo_base::Split(result.headers, "\r\n"));
  item.response_body = result.body;
  item.trace_id = request.context.trace_id;
  item.exception_category = std::max(0, request.context.exception_category);
  return item;
}

}  // namespace zo_tarvel
