#include "network/http/transfer_limits.h"

#include <algorithm>

#include "base/text/strings.h"

namespace WQBASE::network {
namespace {

using zo_base::EqualIgnoringCase;

bool ListsCodings(std::string_view name) {
  return EqualIgnoringCase(name, "Content-Encoding") ||
         EqualIgnoringCase(name, "Transfer-Encoding");
}

bool IsDecoded(std::string_view coding) {
  return !coding.empty() && !EqualIgnoringCase(coding, "identity") &&
         !EqualIgnoringCase(coding, "chunked");
}

}  // namespace

std::size_t CodingsIn(std::string_view name, std::string_view value) {
  if (!ListsCodings(name)) return 0;
  const auto pieces = zo_base::Split(value, ",");
  return static_cast<std::size_t>(std::ranges::count_if(
      pieces, [](std::string_view piece) { return IsDecoded(zo_base::Trim(piece)); }));
}

}  // namespace WQBASE::network
