#pragma once

#include <cstdio>
#include <cstdlib>

// ZO_ASSERT(condition) states what cannot happen unless the library itself is wrong: a contract
// between its own functions, never something that a client, the network or a file controls. Where
// TARVEL_ASSERTIONS is defined (Debug, sanitizer and fuzz builds), a broken contract ends the
// process. Elsewhere the condition is compiled but not evaluated.
#ifdef TARVEL_ASSERTIONS
#define ZO_ASSERT(...) \
  ((__VA_ARGS__) ? void() : ::zo_base::AssertionFailed(__FILE__, __LINE__, #__VA_ARGS__))
#else
#define ZO_ASSERT(...) static_cast<void>(sizeof((__VA_ARGS__) ? 1 : 0))
#endif

namespace zo_base {

[[noreturn, gnu::cold]] inline void AssertionFailed(const char* file, int line,
                                                    const char* condition) {
  std::fprintf(stderr, "%s:%d: broken contract: %s\n", file, line, condition);
  std::abort();
}

}  // namespace zo_base
