#pragma once

#include <tarvel/tarvel.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/object/object.h"
#include "tarvel/environment/configuration/deployment.h"
#include "tarvel/environment/configuration/request_timeouts.h"
#include "tarvel/environment/configuration/trace_id_generator.h"

namespace zo_tarvel {

class HttpAgent;
class IExceptionDataReporter;
struct MultipleURLHttpRequest;

// Signals of the configuration, emitted on the thread that made the change.
// Argument: const std::string, the new token.
inline const char* SIG_BusinessTokenChanged() { return "SIG_BusinessTokenChanged"; }
// Argument: zo_net::AddressFamily, what the network can reach now.
inline const char* SIG_NetworkChanged() { return "SIG_NetworkChanged"; }

// How the LBS server wants failures to be reported.
struct StatisticSettings {
  std::int32_t on = 1;
  std::string host = kDefaultStatisticsHost;
  std::int32_t count = 10;
  std::int32_t time = 60'000;       // Milliseconds.
  std::int64_t min_delay = 10'000;  // Milliseconds.
};

// What the environment has made of its settings: cleaned values, derived directories, the values
// that change while it is up, and the signals that tell of the changes.
//
// Threads: any after Load, which runs before any reader exists. Ownership: the environment's
// storage owns it; all others hold it weakly.
class _EnvironmentConfig : public zo_base::ZOObjectIMPL {
 public:
  // Sends a logical request; with `post_to_work_thread`, begins it on the agent's work thread.
  using HttpRequestInvoker =
      std::function<void(const MultipleURLHttpRequest&, bool post_to_work_thread)>;

  ~_EnvironmentConfig() override { SetExitFlag(true); }

  void Load(const _ZOTarvelEnvironmentSettings& settings);

  bool enable_httpdns() const { return enable_httpdns_; }
  bool only_https_supported() const { return only_https_supported_; }
  bool try_http_request_on_netunav() const { return try_http_request_on_netunav_; }
  bool http_request_ip_preferred() const { return http_request_ip_preferred_; }
  bool enable_exception_data_reporting() const { return enable_exception_data_reporting_; }
  std::int32_t sv() const { return sv_; }
  std::int32_t pv() const { return pv_; }
  std::int32_t client_type() const { return client_type_; }
  std::int32_t single_request_timeout() const { return timeouts_.timeout; }
  std::int32_t single_request_prefail_timeout() const { return timeouts_.prefail_timeout; }
  std::string business_type() const { return business_type_; }
  std::string business_version() const { return business_version_; }
  // Directories of this business, ending in "/". Not created here.
  std::string appdata_path() const { return appdata_path_; }
  std::string log_path() const { return log_path_; }

  std::string GetBusinessToken() const;
  // Emits SIG_BusinessTokenChanged if the token is a new one. Two changes never emit in parallel.
  void SetBusinessToken(const std::string& token);

  zo_net::AddressFamily address_family() const { return address_family_.load(); }
  // Emits SIG_NetworkChanged if `notify`, also for the same family.
  void SetAddressFamily(zo_net::AddressFamily family, bool notify);

  // Set when the environment is taken down: from then on no new work is begun.
  void SetExitFlag(bool exiting) { exit_flag_.store(exiting, std::memory_order_release); }
  bool IsExiting() const { return exit_flag_.load(std::memory_order_acquire); }

  // Carried for the interface: the parser of the LBS answer sets them, and nothing reads them.
  void SetStatisticSettings(const StatisticSettings& settings);
  StatisticSettings statistic_settings() const;

  // Called in the start sequence only.
  void SetHttpRequestInvoker(HttpRequestInvoker invoker) {
    http_request_invoker_ = std::move(invoker);
  }
  HttpRequestInvoker http_request_invoker() const { return http_request_invoker_; }
  void SetHttpAgent(std::weak_ptr<HttpAgent> agent) { http_agent_ = std::move(agent); }

  // Null before Load.
  std::shared_ptr<IExceptionDataReporter> GetExceptionReporter() const {
    return exception_reporter_;
  }
  // About the user, for exception records.
  std::string ExceptionUserInfo() const {
    return exception_user_info_ ? exception_user_info_() : std::string();
  }
  [[nodiscard]] std::string GenerateTraceId() const { return zo_tarvel::GenerateTraceId(); }

  // The values as log text, with the token in plain.
  [[nodiscard]] std::string FormatBanner() const;

 private:
  void LoadDirectories(const _ZOTarvelEnvironmentSettings& settings);

  // Constant after the start sequence.
  bool try_http_request_on_netunav_ = true;
  bool enable_httpdns_ = true;
  bool only_https_supported_ = false;
  bool http_request_ip_preferred_ = false;
  bool enable_exception_data_reporting_ = false;
  std::int32_t sv_ = 0;
  std::int32_t pv_ = 0;
  std::int32_t client_type_ = 0;
  RequestTimeouts timeouts_;
  std::string business_type_ = "im_g1";
  std::string business_version_;
  std::string appdata_path_;
  std::string log_path_;
  HttpRequestInvoker http_request_invoker_;
  std::shared_ptr<IExceptionDataReporter> exception_reporter_;
  // Carried for the interface: nothing reads the first two, and nothing sets the function.
  std::weak_ptr<HttpAgent> http_agent_;
  const std::shared_ptr<TraceIdGeneratorTag> trace_id_generator_ =
      std::make_shared<TraceIdGeneratorTag>();
  std::function<std::string()> exception_user_info_;

  std::atomic<bool> exit_flag_{false};
  std::atomic<zo_net::AddressFamily> address_family_{zo_net::kAddressFamilyAny};

  // Held by a change of the token until its slots have run, so that they see the changes in order.
  // Readers don't take it: a slot logs, and the client's log function may wait for a reader.
  zo_base::_thread_recursive_mutex token_change_lock_;
  mutable zo_base::_thread_recursive_mutex token_lock_ ZO_ACQUIRED_AFTER(token_change_lock_);
  std::string business_token_ ZO_GUARDED_BY(token_lock_);

  mutable zo_base::_thread_recursive_mutex statistic_settings_lock_;
  StatisticSettings statistic_settings_ ZO_GUARDED_BY(statistic_settings_lock_);
};

}  // namespace zo_tarvel
