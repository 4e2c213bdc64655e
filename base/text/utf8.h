#pragma once

#include <string_view>

namespace zo_base {

// Whether the bytes are well-formed UTF-8: the shortest forms of U+0000 to U+10FFFF, no surrogates.
bool IsUtf8(std::string_view bytes);

}  // namespace zo_base
