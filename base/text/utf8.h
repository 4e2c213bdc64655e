#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zo_base {

// Whether the bytes are well-formed UTF-8: the shortest forms of U+0000 to U+10FFFF, no surrogates.
bool IsUtf8(std::string_view bytes);

// Appends the shortest form of a code up to U+10FFFF. A surrogate gets three bytes of its own.
void AppendUtf8(std::uint32_t code, std::string& out);

}  // namespace zo_base
