#pragma once

namespace zo_base {

// Calls `handler` when the process exits or this image is unloaded, whichever is first. The last
// handler registered runs first.
//
// Like std::atexit, but tied to this image by its own handle. A sanitizer's std::atexit doesn't
// record the image, so the handler would run after dlclose().
void OnProcessExitOrUnload(void (*handler)());

}  // namespace zo_base
