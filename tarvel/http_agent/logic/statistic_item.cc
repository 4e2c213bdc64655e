#include "tarvel/http_agent/logic/statistic_item.h"

#include <algorithm>

#include "base/text/strings.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

using zo_base::Split;

// Name and value of each line; of a value with a ":" in it, the end.
std::map<std::string, std::string> HeaderMapOf(const std::vector<std::string>& lines) {
  std::map<std::string, std::string> headers;
  for (const std::string& line : lines) {
    const auto pieces = Split(line, ":");
    if (pieces.size() >= 2) headers[pieces.front()] = pieces.back();
  }
  return headers;
}

}  // namespace

_StatisticItem MakeStatisticItem(const MultipleURLHttpRequest& request,
                                 const SubRequestResult& result, const std::string& error_message,
                                 std::int64_t end_time) {
  _StatisticItem item;
  item.request_type = request.request_type;
  item.url = request.urls[result.index].url;
  const std::string host = WQBASE::network::GetHost(item.url, false);
  if (WQBASE::network::IsIPAddress(host)) {
    item.ips.push_back(host);
  } else {
    item.host = host;
  }
  item.app_key = request.context.app_key;
  item.end_time = end_time;
  item.code = result.code;
  item.error_message = error_message;
  item.duration = end_time - static_cast<std::int64_t>(result.start_time);
  item.request_header = HeaderMapOf(request.headers);
  item.response_header = HeaderMapOf(Split(result.headers, "\r\n"));
  item.response_body = result.body;
  item.trace_id = request.context.trace_id;
  item.exception_category = std::max(0, request.context.exception_category);
  return item;
}

}  // namespace zo_tarvel
