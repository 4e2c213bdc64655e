#pragma once

#include <tarvel/tarvel.h>

#include <memory>

namespace zo_tarvel {

// How an object gets the LBS service. The service lives in a layer above this one, which says here
// how to make it.
struct LBSServiceFactory {
  // A new service, not started. It is also an IEnvironmentConfigGetter and an IThread.
  std::shared_ptr<IZOTarvelLBSService> (*create)() = nullptr;
  // Makes the service's gathered requests come to nothing, since its thread is about to stop.
  void (*stop_gathering)(IZOTarvelLBSService& service) = nullptr;
};

// Called once, while the library is loaded.
void SetLBSServiceFactory(const LBSServiceFactory& factory);

// Without functions when no such layer is linked.
const LBSServiceFactory& GetLBSServiceFactory();

}  // namespace zo_tarvel
