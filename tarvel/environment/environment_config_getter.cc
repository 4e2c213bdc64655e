#include "tarvel/environment/environment_config_getter.h"

namespace zo_tarvel {

void EnvironmentConfigGetterBase::SetEnvironmentConfig(
    const std::shared_ptr<_EnvironmentConfig>& config) {
  config_ = config;
}

std::shared_ptr<_EnvironmentConfig> EnvironmentConfigGetterBase::GetEnvironmentConfig() {
  return config_.lock();
}

}  // namespace zo_tarvel
