#pragma once

#include <string>
#include <string_view>

namespace zo_base {

// The MD5 digest of `text` as 32 lower-case hexadecimal digits. It names directories; it protects
// nothing.
std::string Md5Hex(std::string_view text);

}  // namespace zo_base
