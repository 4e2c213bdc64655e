#include "tarvel/environment/configuration/environment_config_getter.h"

namespace zo_tarvel {

void EnvironmentConfigGetterBase::SetEnvironmentConfig(
    const std::shared_ptr<_EnvironmentConfig>& config) {
  config_ = config;
}

std::shared_ptr<_EnvironmentConfig> EnvironmentConfigGetterBase::GetEnvironmentConfig() {
  return config_.lock();
}

void EnvironmentConfigGetterBase::InvokeHttpRequest(const MultipleURLHttpRequest& request,
                                                    bool post_to_work_thread) {
  const auto config = GetEnvironmentConfig();
  if (config == nullptr) return;
  if (const auto invoker = config->http_request_invoker()) invoker(request, post_to_work_thread);
}

}  // namespace zo_tarvel
