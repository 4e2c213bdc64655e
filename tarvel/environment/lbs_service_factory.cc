#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {
namespace {

constinit LBSServiceFactory the_factory = nullptr;

}  // namespace

void SetLBSServiceFactory(LBSServiceFactory factory) { the_factory = factory; }

LBSServiceFactory GetLBSServiceFactory() { return the_factory; }

}  // namespace zo_tarvel
