// The life of a client: start, notices, exit.
#include <tarvel/tarvel.h>

#include <cstdio>

int main(int argc, char** argv) {
  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  std::snprintf(settings.business_type, sizeof settings.business_type, "demo");
  std::snprintf(settings.business_version, sizeof settings.business_version, "1.0");
  std::snprintf(settings.appdata_path, sizeof settings.appdata_path, "%s",
                argc > 1 ? argv[1] : "/tmp/tarvel-demo");
  settings.single_request_timeout = 5'000;

  const int id = zo_tarvel::StartTarvelEnvironment(settings);
  zo_tarvel::IZOTarvelObject* object = zo_tarvel::GetTarvelObject(id);
  if (object == nullptr) return 1;

  object->SetBusinessToken("application key");
  object->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  std::printf("the environment is up, its object has id %d\n", id);

  zo_tarvel::ExitTarvelEnvironment(id);
  std::puts("the environment is down");
  return 0;
}
