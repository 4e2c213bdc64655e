#include "network/http/http_request.h"

#include <atomic>

namespace WQBASE::network {
namespace {

std::atomic<std::uint64_t> last_id{0};

}  // namespace

const char* VerbOf(std::int32_t method) {
  switch (method) {
    case kMethodGet:
      return "GET";
    case kMethodPost:
      return "POST";
    case kMethodPut:
      return "PUT";
    case kMethodDelete:
      return "DELETE";
    default:
      return "";
  }
}

HttpRequest::HttpRequest() : id(++last_id) {}

}  // namespace WQBASE::network
