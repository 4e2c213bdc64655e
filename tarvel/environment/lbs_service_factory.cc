#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {
namespace {

LBSServiceFactory& Factory() {
  static LBSServiceFactory factory = nullptr;  // Nothing to destroy.
  return factory;
}

}  // namespace

void SetLBSServiceFactory(LBSServiceFactory factory) { Factory() = factory; }

LBSServiceFactory GetLBSServiceFactory() { return Factory(); }

}  // namespace zo_tarvel
