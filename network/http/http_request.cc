#include "network/http/http_request.h"

#include <atomic>
#include <iterator>

namespace WQBASE::network {
namespace {

std::atomic<std::uint64_t> last_id{0};

}  // namespace

const char* VerbOf(std::int32_t method) {
  constexpr const char* kVerbs[] = {"GET", "POST", "", "PUT", "DELETE"};
  return method >= 0 && method < std::ssize(kVerbs) ? kVerbs[method] : "";
}

HttpRequest::HttpRequest() : id(++last_id) {}

}  // namespace WQBASE::network
