// Loads an image, runs its client if an ending is named, unloads it, and prints whether it has
// gone. Usage: loader IMAGE ROUNDS [ENDING]
#include <dlfcn.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

int CountFreeThreadLocalKeys() {
  std::vector<pthread_key_t> taken;
  for (pthread_key_t key; pthread_key_create(&key, nullptr) == 0;) taken.push_back(key);
  for (const pthread_key_t key : taken) pthread_key_delete(key);
  return static_cast<int>(taken.size());
}

// Returns whether the image is unloaded.
bool LoadRunUnload(const char* image, const char* ending) {
  void* handle = dlopen(image, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    std::puts(dlerror());
    return false;
  }
  if (ending) reinterpret_cast<void (*)(const char*)>(dlsym(handle, "RunClient"))(ending);
  dlclose(handle);
  return dlopen(image, RTLD_NOW | RTLD_NOLOAD) == nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  int free_keys = 0;  // After the first round: libraries that stay loaded take keys of their own.
  for (int round = 0; round < std::atoi(argv[2]); ++round) {
    if (!LoadRunUnload(argv[1], argc > 3 ? argv[3] : nullptr)) {
      std::puts("still loaded");
      return 1;
    }
    if (round == 0) free_keys = CountFreeThreadLocalKeys();
  }
  std::puts(CountFreeThreadLocalKeys() == free_keys ? "unloaded" : "lost thread-local keys");
}
