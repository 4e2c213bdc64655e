#include "tests/environment/fake_lbs_service.h"

#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {

FakeLBSService::FakeLBSService() : TaskThread("lbs service"), timer_(GetTaskLoop()) {}

void FakeLBSService::Install() {
  SetLBSServiceFactory(
      []() -> std::shared_ptr<IZOTarvelLBSService> { return std::make_shared<FakeLBSService>(); });
}

FakeLBSService* FakeLBSService::StartOne() {
  auto* service = dynamic_cast<FakeLBSService*>(GetTarvelObject(1)->GetLBSService());
  if (service) service->Init({});
  return service;
}

bool FakeLBSService::Init(const _ZOTarvelLBSSettings&) {
  // A timer in flight whenever the thread is stopped.
  Connect<>(zo_base::SIG_ThreadBegin, ToWeakClosure([this] {
              timer_.Start(
                  1, [] {}, -1);
            }));
  Start();
  return true;
}

}  // namespace zo_tarvel
