#include "tarvel/http_agent/logic/statistic_report.h"

#include <memory>
#include <utility>

#include "base/json/json_texts.h"
#include "base/log/log.h"
#include "tarvel/environment/configuration/exception_data.h"

namespace zo_tarvel {
namespace {

using zo_base::json11::Json;
using zo_base::json11::ToJson;

constexpr std::int32_t kFailedSubRequest = 1;  // The kind of these records.
constexpr std::int32_t kReported = 1;          // Their state.

template <class Value>
void SetUnlessEmpty(Json::object& object, const char* key, const Value& value) {
  if (!value.empty()) object[key] = value;
}

void SetUnlessEmpty(Json::object& object, const char* key,
                    const std::map<std::string, std::string>& headers) {
  if (!headers.empty()) object[key] = Json::object(headers.begin(), headers.end());
}

Json CorrectionOf(const _StatisticItem& item) {
  return Json::object{{"corr_url", item.corr_url},
                      {"corr_start_time", static_cast<long long>(item.corr_start_time)},
                      {"corr_duration", static_cast<long long>(item.corr_duration)}};
}

std::shared_ptr<ExceptionDataDetails> RecordOf(const _StatisticItem& item) {
  auto record = CreateExceptionDataDetails(kFailedSubRequest);
  if (record == nullptr) return record;
  record->process_id = item.trace_id;
  record->duration = item.duration;
  record->start_time = item.end_time;
  record->state = kReported;
  record->exception_service = item.exception_category;
  ExceptionDataExtension extension;
  extension.operation_type = item.request_type == 0 ? 0 : 1;
  extension.target = item.url;
  extension.code = item.code;
  extension.description = DescriptionOf(item);
  record->extension.push_back(std::move(extension));
  return record;
}

}  // namespace

std::string DescriptionOf(const _StatisticItem& item) {
  Json::object description;
  if (!item.host.empty() && !item.ips.empty()) description[item.host] = ToJson(item.ips);
  if (item.corrected) description["corr_info"] = CorrectionOf(item);
  SetUnlessEmpty(description, "error_message", item.error_message);
  SetUnlessEmpty(description, "request_header", item.request_header);
  SetUnlessEmpty(description, "response_body", item.response_body);
  SetUnlessEmpty(description, "response_header", item.response_header);
  return Json(std::move(description)).dump();
}

void ReportStatisticItems(const std::list<_StatisticItem>& items,
                          IExceptionDataReporter& reporter) {
  for (const _StatisticItem& item : items) {
    const auto record = RecordOf(item);
    if (record == nullptr) return;
    reporter.ReportException(record);
    ZO_LOG << "[statics][testing]ret:true";
  }
}

}  // namespace zo_tarvel
