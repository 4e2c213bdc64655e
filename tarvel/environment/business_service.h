#pragma once

#include "base/object/object.h"
#include "tarvel/environment/configuration/environment_config_getter.h"

namespace zo_tarvel {

// Base of a service that an object hosts.
class IBusinessService : public EnvironmentConfigGetterBase,
                         public virtual zo_base::ZOObjectIMPL {};

}  // namespace zo_tarvel
