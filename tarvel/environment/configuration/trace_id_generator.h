#pragma once

#include <string>

namespace zo_tarvel {

// Stands for the generator in the configuration. The generator's state belongs to the process.
struct TraceIdGeneratorTag {};

// An id for one logical request: 48 characters, the steady clock and 28 random digits, all in
// lower-case hexadecimal. Any thread.
[[nodiscard]] std::string GenerateTraceId();

}  // namespace zo_tarvel
