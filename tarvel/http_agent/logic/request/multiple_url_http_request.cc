#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

std::vector<std::string> MakeContextHeaders(const MultipleURLHttpRequestContext& context) {
  std::vector<std::string> headers;
  if (!context.app_key.empty()) headers.push_back("X-VELDRIN-APPKEY:" + context.app_key);
  if (!context.business.empty()) headers.push_back("X-VELDRIN-BUSINESS:" + context.business);
  if (!context.sdk_version.empty()) {
    headers.push_back("X-VELDRIN-SDKVER:" + context.sdk_version + "_" +
                      std::to_string(context.client_type) + "_" +
                      std::to_string(context.sdk_version_code));
  }
  return headers;
}

}  // namespace zo_tarvel
