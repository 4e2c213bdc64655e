#pragma once

#include <curl/curl.h>

namespace WQBASE::network {

// Makes libcurl ready for use, once per process; false when it can't be. Any thread, also while the
// client uses libcurl itself.
//
// It is never taken down again: the client's own use of it may rest on it. And it stays loaded when
// this library is unloaded, since its threads may still wait for an answer of a name server.
bool InitCurlLibrary();

// libcurl ignores SIGPIPE for the whole process while it works on a handle that doesn't forbid it
// (CURLOPT_NOSIGNAL). These functions make handles that do.

// Null when memory is short.
CURL* OpenEasyHandle();
// Null when memory or descriptors are short.
CURLM* OpenMultiHandle();

}  // namespace WQBASE::network
