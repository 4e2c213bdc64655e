#pragma once

#include <tarvel/tarvel.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/object/object.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/http_agent/http_dns/httpdns_sdk.h"

namespace zo_tarvel {

// The front of HTTPDNS, and the one place that reads its switch in the configuration. While it is
// off there is neither a manager nor a thread, and every operation only logs.
//
// Threads: any. InvokeQuery never runs during Uninit, since the agent stops its own thread first.
// Ownership: the agent owns it; it owns the manager. It serves one Init and one Uninit.
class HttpDNSService : public EnvironmentConfigGetterBase, public virtual zo_base::ZOObjectIMPL {
 public:
  bool Init();
  void Uninit();
  // See HttpDNSManager. Returns false and never calls back while HTTPDNS is off.
  bool InvokeQuery(zo_net::AddressFamily family, const std::vector<std::string>& hosts,
                   const HttpDNSManager::QueryCallback& callback,
                   const MultipleURLHttpRequestContext& context);

 private:
  bool IsEnabled();

  std::shared_ptr<HttpDNSManager> manager;  // Null before Init and after Uninit.
  std::once_flag init_once;
};

}  // namespace zo_tarvel
