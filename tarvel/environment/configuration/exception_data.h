#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zo_tarvel {

// One failed sub request, as the library keeps it.
struct ExceptionDataExtension {
  std::int32_t operation_type = 0;
  std::string target;
  std::int32_t code = 0;
  std::string description;
  std::string context;
};

// An exception record on its way to the client. The fields mean what those of TarvelExceptionData
// do. Shared between threads once it is filled, and then only read.
struct ExceptionDataDetails {
  std::string process_id;
  std::int32_t action = 0;
  std::int64_t duration = 0;
  std::int64_t start_time = 0;
  std::int32_t state = 0;
  std::int32_t exception_service = 0;
  std::vector<ExceptionDataExtension> extension;
};

// A record of one kind, with nothing else filled in.
std::shared_ptr<ExceptionDataDetails> CreateExceptionDataDetails(std::int32_t action);

// The category that the records of one of the services have; 0 for an unknown code.
inline constexpr std::int32_t kServiceCodeHttpDns = 0;
inline constexpr std::int32_t kServiceCodeLBS = 2;
std::int32_t GetExceptionCategory(std::int32_t code);

// What the client gets of a record.
TarvelExceptionData PublicRecordOf(const ExceptionDataDetails& details, std::string user_info);

// The record as one JSON object, keys in ascending order.
std::string ExceptionDataToJson(const TarvelExceptionData& data);

}  // namespace zo_tarvel
