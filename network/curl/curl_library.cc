#include "network/curl/curl_library.h"

#include <curl/curl.h>
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

}  // namespace WQBASE::network
