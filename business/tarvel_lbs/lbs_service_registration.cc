// Tells the objects of the environment how to make the LBS service, while the library is loaded.

#include <memory>

#include "business/tarvel_lbs/tarvel_lbs_service.h"
#include "tarvel/environment/lbs_service_factory.h"

namespace zo_tarvel {
namespace {

std::shared_ptr<IZOTarvelLBSService> CreateLBSService() {
  return std::make_shared<ZOTarvelLBSServiceImpl>();
}

[[maybe_unused]] const bool registered = [] {
  SetLBSServiceFactory(CreateLBSService);
  return true;
}();

}  // namespace
}  // namespace zo_tarvel
