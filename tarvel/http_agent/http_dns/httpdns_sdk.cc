#include "tarvel/http_agent/http_dns/httpdns_sdk.h"

#include <system_error>

#include "base/log/log.h"
#include "base/object/weakly.h"
#include "base/process/filesystem.h"

namespace zo_tarvel {

HttpDNSManager::HttpDNSManager(zo_base::WallClock wall_clock, zo_base::SteadyClock& clock)
    : TaskThread("http dns manager", clock),
      server_updater(std::make_shared<HttpDNSServerUpdater>(wall_clock, GetTaskLoop())),
      host_resolver(
          std::make_shared<HttpDNSHostResolver>(wall_clock, GetTaskLoop(), server_updater)) {}

bool HttpDNSManager::Init() {
  const auto config = GetEnvironmentConfig();
  server_updater->SetEnvironmentConfig(config);
  host_resolver->SetEnvironmentConfig(config);
  request_headers.clear();
  if (config != nullptr) {
    request_headers = {"X-VELDRIN-BUSINESS:" + config->business_type(),
                       "X-VELDRIN-SDKVER:" + config->business_version() + "_" +
                           std::to_string(config->client_type()) + "_" +
                           std::to_string(config->sv()),
                       "X-VELDRIN-APPKEY:" + config->GetBusinessToken()};
  }
  if (const std::string failure = StartIfPossible(); !failure.empty()) {
    ZO_LOG << "http dns manager thread failed:" << failure;
    return false;
  }
  if (config != nullptr) {
    const std::string directory = config->appdata_path() + "http_dns/";
    std::error_code ignored;  // Without the directory the files can be neither read nor saved.
    zo_base::filesystem::create_directories(directory, ignored);
    server_updater->LoadServerCache(directory + "http_server_cache.data");
    host_resolver->LoadCache(directory + "http_dns_cache.data");
  }
  server_updater->InitInterfaceAddress();
  return true;
}

void HttpDNSManager::OnThreadEnd() {
  host_resolver->SaveRecentHosts();
  TaskThread::OnThreadEnd();
}

bool HttpDNSManager::InvokeQuery(zo_net::AddressFamily family,
                                 const std::vector<std::string>& hosts,
                                 const QueryCallback& callback,
                                 const MultipleURLHttpRequestContext& context) {
  PostTask(zo_base::Weakly(host_resolver,
                           [query = HttpDNSHostResolver::Query{family, hosts, callback, context}](
                               auto& resolver) { resolver.DoQuery(query, false); }));
  return true;
}

}  // namespace zo_tarvel
