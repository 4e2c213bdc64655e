#include "base/text/numbers.h"

#include <clocale>
#include <cstdlib>
#include <string>

namespace zo_base {

double ReadDouble(std::string_view text) {
#if defined(__cpp_lib_to_chars)  // Not in libc++ before version 20. It is several times faster.
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc()) return value;
    // Out of range: strtod() says on which side.
#endif
  static const locale_t locale = newlocale(LC_NUMERIC_MASK, "C", nullptr);  // Freed by nobody.
  return strtod_l(std::string(text).c_str(), nullptr, locale);
}

}  // namespace zo_base
