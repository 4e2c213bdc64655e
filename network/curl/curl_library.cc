#include "network/curl/curl_library.h"

#include <dlfcn.h>

namespace WQBASE::network {
namespace {

void KeepLoaded() {
  Dl_info image;
  if (dladdr(reinterpret_cast<void*>(&curl_global_init), &image) == 0) return;
  if (void* handle = dlopen(image.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE)) {
    dlclose(handle);
  }
}

}  // namespace

bool InitCurlLibrary() {
  static const bool ready = [] {
    KeepLoaded();
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  }();
  return ready;
}

EasyHandle OpenEasyHandle() {
  EasyHandle easy(curl_easy_init(), curl_easy_cleanup);
  if (easy != nullptr) curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
  return easy;
}

// A multi handle closes its connections with an easy handle of its own, which takes its options
// over from the easy handle that was added last.
CURLM* OpenMultiHandle() {
  CURLM* const multi = curl_multi_init();
  const EasyHandle easy = OpenEasyHandle();
  if (multi != nullptr && easy != nullptr) {
    curl_multi_add_handle(multi, easy.get());
    curl_multi_remove_handle(multi, easy.get());
  }
  return multi;
}

}  // namespace WQBASE::network
