#include "tarvel/environment/configuration/exception_data.h"

#include <utility>

#include "base/json/json11.h"

namespace zo_tarvel {
namespace {

using zo_base::json11::Json;

// Carried for the interface: a record reaches the client's function only. "%s" is replaced by a
// host.
[[maybe_unused]] constexpr char kReportUrl[] = "%s/statics/report/im/api/error";

Json ToJson(const TarvelExceptionExtension& extension) {
  return Json::object{{"operation_type", extension.operation_type},
                      {"target", extension.target},
                      {"code", extension.code},
                      {"description", extension.description},
                      {"context", extension.context}};
}

}  // namespace

std::shared_ptr<ExceptionDataDetails> CreateExceptionDataDetails(std::int32_t action) {
  auto details = std::make_shared<ExceptionDataDetails>();
  details->action = action;
  return details;
}

std::int32_t GetExceptionCategory(std::int32_t code) {
  constexpr std::pair<std::int32_t, std::int32_t> kCategories[] = {
      {kServiceCodeHttpDns, 5}, {kServiceCodeLBS, 1}, {3, 2}, {301, 3}, {302, 4}, {350, 8}};
  for (const auto& [service, category] : kCategories) {
    if (service == code) return category;
  }
  return 0;
}

TarvelExceptionData PublicRecordOf(const ExceptionDataDetails& details, std::string user_info) {
  return {.user_info = std::move(user_info),
          .reserved_info = {},
          .process_id = details.process_id,
          .action = details.action,
          .duration = details.duration,
          .start_time = details.start_time,
          .state = details.state,
          .exception_service = details.exception_service,
          .extension = details.extension};
}

std::string ExceptionDataToJson(const TarvelExceptionData& data) {
  Json::array extension;
  for (const auto& entry : data.extension) extension.push_back(ToJson(entry));
  return Json(Json::object{{"process_id", data.process_id},
                           {"action", data.action},
                           {"duration", static_cast<long long>(data.duration)},
                           {"start_time", static_cast<long long>(data.start_time)},
                           {"state", data.state},
                           {"exception_service", data.exception_service},
                           {"extension", std::move(extension)}})
      .dump();
}

}  // namespace zo_tarvel
