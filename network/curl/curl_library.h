#pragma once

#include <curl/curl.h>

#include <memory>

namespace WQBASE::network {

// Initializes libcurl once per process; returns false when that fails. May be called from any
// thread, also while the client uses libcurl itself.
//
// It is never cleaned up, since the client may use it too. It also stays loaded when this library
// is unloaded, since its threads may still wait for an answer of a name server.
[[nodiscard]] bool InitCurlLibrary();

// These make handles with CURLOPT_NOSIGNAL. While libcurl works on another handle, it ignores
// SIGPIPE for the whole process.

using EasyHandle = std::unique_ptr<CURL, void (*)(CURL*)>;

// Returns null when memory is short.
[[nodiscard]] EasyHandle OpenEasyHandle();
// Returns null when memory or descriptors are short.
[[nodiscard]] CURLM* OpenMultiHandle();

}  // namespace WQBASE::network
