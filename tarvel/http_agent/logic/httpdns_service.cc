#include "tarvel/http_agent/logic/httpdns_service.h"

#include "base/log/log.h"

namespace zo_tarvel {

bool HttpDNSService::IsEnabled() {
  const auto config = GetEnvironmentConfig();
  return config != nullptr && config->enable_httpdns();
}

bool HttpDNSService::Init() {
  if (!IsEnabled()) {
    ZO_LOG << "[HttpDNSService]Init unenable httpdns, return false";
    return false;
  }
  std::call_once(init_once, [this] {
    manager = std::make_shared<HttpDNSManager>();
    manager->SetEnvironmentConfig(GetEnvironmentConfig());
  });
  if (manager == nullptr) return false;
  if (manager->Init()) return true;
  manager.reset();  // Without its thread it would never call back.
  return false;
}

void HttpDNSService::Uninit() {
  if (!IsEnabled()) {
    ZO_LOG << "[HttpDNSService]Uninit unenable httpdns, return";
    return;
  }
  if (manager == nullptr) return;
  manager->Stop();
  manager.reset();
}

bool HttpDNSService::InvokeQuery(zo_net::AddressFamily family,
                                 const std::vector<std::string>& hosts,
                                 const HttpDNSManager::QueryCallback& callback,
                                 const MultipleURLHttpRequestContext& context) {
  if (!IsEnabled() || manager == nullptr) {
    ZO_LOG << "[HttpDNSService]InvokeQuery unenable httpdns, return false";
    return false;
  }
  return manager->InvokeQuery(family, hosts, callback, context);
}

}  // namespace zo_tarvel
