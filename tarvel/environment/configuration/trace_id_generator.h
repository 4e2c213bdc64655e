#pragma once

#include <string>

namespace zo_tarvel {

// Stands for the generator in the configuration; its state is the process's.
struct TraceIdGeneratorTag {};

// An id for one logical request: 48 characters, the steady clock and 28 random digits, all in
// lower-case hexadecimal. Any thread.
std::string GenerateTraceId();

}  // namespace zo_tarvel
