#pragma once

namespace zo_base {

// Calls `handler` when the process exits or this image is unloaded, whichever comes first; the last
// one registered runs first.
//
// As std::atexit, but bound to the image by its own handle. What takes the place of std::atexit in
// an instrumented process forgets the image, and would call into it after it has gone.
void OnProcessExitOrUnload(void (*handler)());

}  // namespace zo_base
