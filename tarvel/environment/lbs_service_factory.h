#pragma once

#include <tarvel/tarvel.h>

#include <memory>

namespace zo_tarvel {

// Makes the LBS service, which lives in a layer above this one. The service is not started. It is
// also an IEnvironmentConfigGetter, and an IThread whose Stop ends all that calls the client.
using LBSServiceFactory = std::shared_ptr<IZOTarvelLBSService> (*)();

// Called once, while the library is loaded.
void SetLBSServiceFactory(LBSServiceFactory factory);

// Returns null when no LBS layer is linked.
LBSServiceFactory GetLBSServiceFactory();

}  // namespace zo_tarvel
