#pragma once

#include <tarvel/tarvel.h>

#include <memory>

namespace zo_tarvel {

// How an object gets the LBS service. The service lives in a layer above this one, which says here
// how to make one: not started, and also an IEnvironmentConfigGetter and an IThread, whose Stop
// ends all that calls the client.
using LBSServiceFactory = std::shared_ptr<IZOTarvelLBSService> (*)();

// Called once, while the library is loaded.
void SetLBSServiceFactory(LBSServiceFactory factory);

// Null when no such layer is linked.
LBSServiceFactory GetLBSServiceFactory();

}  // namespace zo_tarvel
