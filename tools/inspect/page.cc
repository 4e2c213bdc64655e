#include "tools/inspect/page.h"

#include <string_view>

#include "base/text/strings.h"

namespace tarvel_inspect {
namespace {

#include "page_template.inc"

constexpr std::string_view kPlaceOfReport = "{{report}}";

// Servers choose some of the texts. Without '<' the HTML parser finds neither an end tag nor a
// comment in the document, and all that is beyond ASCII is escaped.
std::string DocumentOf(const std::vector<Report>& reports) {
  using Json = nlohmann::ordered_json;
  const std::string json = ToJson(reports).dump(-1, ' ', true, Json::error_handler_t::replace);
  return zo_base::ReplaceAll(json, "<", "\\u003c");
}

}  // namespace

std::string ToPage(const std::vector<Report>& reports) {
  const std::string_view page = kPageTemplate;
  const std::size_t place = page.find(kPlaceOfReport);
  std::string text(page.substr(0, place));
  text += DocumentOf(reports);
  text += page.substr(place + kPlaceOfReport.size());
  return text;
}

}  // namespace tarvel_inspect
