#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zo_tarvel {

// One failed sub request, as the client sees it too.
using ExceptionDataExtension = TarvelExceptionExtension;

// An exception record on its way to the client, with the fields of TarvelExceptionData. Once
// filled, it is shared between threads and only read.
struct ExceptionDataDetails {
  std::string process_id;
  std::int32_t action = 0;
  std::int64_t duration = 0;
  std::int64_t start_time = 0;
  std::int32_t state = 0;
  std::int32_t exception_service = 0;
  std::vector<ExceptionDataExtension> extension;
};

// Sets only the action.
[[nodiscard]] std::shared_ptr<ExceptionDataDetails> CreateExceptionDataDetails(std::int32_t action);

// Returns the category of the records of a service; 0 for an unknown code.
inline constexpr std::int32_t kServiceCodeHttpDns = 0;
inline constexpr std::int32_t kServiceCodeLBS = 2;
std::int32_t GetExceptionCategory(std::int32_t code);

// The record as the client sees it.
TarvelExceptionData PublicRecordOf(const ExceptionDataDetails& details, std::string user_info);

// The record as one JSON object, keys in ascending order.
std::string ExceptionDataToJson(const TarvelExceptionData& data);

}  // namespace zo_tarvel
