#include "base/process/process_exit.h"

// Part of the C++ ABI; normally only code from the compiler calls it.
extern "C" int __cxa_atexit(void (*handler)(void*), void* argument, void* image);
extern "C" void* __dso_handle;

namespace zo_base {

void OnProcessExitOrUnload(void (*handler)()) {
  __cxa_atexit([](void* function) { reinterpret_cast<void (*)()>(function)(); },
               reinterpret_cast<void*>(handler), &__dso_handle);
}

}  // namespace zo_base
