// Loads an image, runs its client if it has one, unloads it, and tells whether it has gone. As
// often as asked. Usage: loader IMAGE ROUNDS [ENDING]
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {

bool LoadRunUnload(const char* image, const char* ending) {
  void* handle = dlopen(image, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    std::puts(dlerror());
    return false;
  }
  if (ending != nullptr) {
    reinterpret_cast<void (*)(const char*)>(dlsym(handle, "RunClient"))(ending);
  }
  dlclose(handle);
  return dlopen(image, RTLD_NOW | RTLD_NOLOAD) == nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  for (int round = 0; round < std::atoi(argv[2]); ++round) {
    if (!LoadRunUnload(argv[1], argc > 3 ? argv[3] : nullptr)) {
      std::puts("still loaded");
      return 1;
    }
  }
  std::puts("unloaded");
}
