#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {
namespace {

LBSServiceFactory& Factory() {
  static LBSServiceFactory factory;  // Nothing to destroy.
  return factory;
}

}  // namespace

void SetLBSServiceFactory(const LBSServiceFactory& factory) { Factory() = factory; }

const LBSServiceFactory& GetLBSServiceFactory() { return Factory(); }

}  // namespace zo_tarvel
