// A client that starts, takes a few link addresses and exits.
//
//   tarvel_example_link_address [DIRECTORY [LBS-URL]]
#include <tarvel/tarvel.h>

#include <cstdint>
#include <cstdio>

namespace {

void PrintNextAddress(zo_tarvel::IZOTarvelLBSService& service) {
  char host[zo_tarvel::kLinkAddressBufferSize] = {};
  std::int32_t port = 0;
  zo_tarvel::EMAddressFamily family = zo_tarvel::kEMAddressFamilyAny;
  if (service.GetLinkAddress(host, &port, &family)) std::printf("link to %s:%d\n", host, port);
}

}  // namespace

int main(int argc, char** argv) {
  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  std::snprintf(settings.business_type, sizeof settings.business_type, "demo");
  std::snprintf(settings.business_version, sizeof settings.business_version, "1.0");
  std::snprintf(settings.business_token, sizeof settings.business_token, "application key");
  std::snprintf(settings.appdata_path, sizeof settings.appdata_path, "%s",
                argc > 1 ? argv[1] : "/tmp/tarvel-demo");

  const int id = zo_tarvel::StartTarvelEnvironment(settings);
  zo_tarvel::IZOTarvelObject* object = zo_tarvel::GetTarvelObject(id);
  if (object == nullptr) return 1;

  zo_tarvel::_ZOTarvelLBSSettings lbs;
  std::snprintf(lbs.lbs_main_addr, sizeof lbs.lbs_main_addr, "%s",
                argc > 2 ? argv[2] : "https://lbs.example/lbs/conf.jsp");
  std::snprintf(lbs.default_link, sizeof lbs.default_link, "link.example:8080");
  zo_tarvel::IZOTarvelLBSService* service = object->GetLBSService();
  service->Init(lbs);

  // Take one before each connection attempt. The default follows the last of the list.
  for (int i = 0; i < 3; ++i) PrintNextAddress(*service);

  zo_tarvel::ExitTarvelEnvironment(id);
  return 0;
}
