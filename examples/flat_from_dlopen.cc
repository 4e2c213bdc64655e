// The flat interface, loaded while the program runs: for a client that can live without the
// library, or takes it from a place of its own.
//
//   tarvel_example_flat_from_dlopen LIBRARY [DIRECTORY [LBS-URL]]
#include <dlfcn.h>
#include <tarvel/tarvel.h>

#include <cstdint>
#include <cstdio>

namespace {

// The functions by their symbols, as `nm --dynamic --demangle` shows them.
struct Library {
  decltype(&zo_tarvel::StartTarvelEnvironment) start;
  decltype(&zo_tarvel::GetTarvelObject) object;
  decltype(&zo_tarvel::ExitTarvelEnvironment) exit;

  bool Load(const char* path) {
    void* const handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    return handle != nullptr &&
           Find(handle,
                "_ZN9zo_tarvel22StartTarvelEnvironmentERKNS_28_ZOTarvelEnvironmentSettingsE",
                start) &&
           Find(handle, "_ZN9zo_tarvel15GetTarvelObjectEi", object) &&
           Find(handle, "_ZN9zo_tarvel21ExitTarvelEnvironmentEi", exit);
  }

  template <class Function>
  static bool Find(void* handle, const char* symbol, Function& function) {
    function = reinterpret_cast<Function>(dlsym(handle, symbol));
    return function != nullptr;
  }
};

template <std::size_t kSize>
void Put(const char* text, char (&field)[kSize]) {
  std::snprintf(field, kSize, "%s", text);
}

}  // namespace

int main(int argc, char** argv) {
  Library library{};
  if (argc < 2 || !library.Load(argv[1])) {
    std::fprintf(stderr, "the first argument must be the path of the library\n");
    return 1;
  }

  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  Put("demo", settings.business_type);
  Put("application key", settings.business_token);
  Put(argc > 2 ? argv[2] : "/tmp/tarvel-demo", settings.appdata_path);
  const int id = library.start(settings);
  zo_tarvel::IZOTarvelObject* const object = library.object(id);
  if (object == nullptr) return 1;

  zo_tarvel::_ZOTarvelLBSSettings lbs;
  Put(argc > 3 ? argv[3] : "https://lbs.example/lbs/conf.jsp", lbs.lbs_main_addr);
  Put("link.example:8080", lbs.default_link);
  zo_tarvel::IZOTarvelLBSService* const service = object->GetLBSService();
  service->Init(lbs);

  char host[zo_tarvel::kLinkAddressBufferSize] = {};
  std::int32_t port = 0;
  zo_tarvel::EMAddressFamily family = zo_tarvel::kEMAddressFamilyAny;
  if (service->GetLinkAddress(host, &port, &family)) std::printf("link to %s:%d\n", host, port);

  library.exit(id);  // Before an unload, which this program leaves to its end.
  return 0;
}
