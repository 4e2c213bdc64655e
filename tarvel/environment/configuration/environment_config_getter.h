#pragma once

#include <memory>

#include "tarvel/environment/configuration/environment_config.h"

namespace zo_tarvel {

// Gives every business class access to the one configuration.
class IEnvironmentConfigGetter {
 public:
  virtual ~IEnvironmentConfigGetter() = default;
  virtual void SetEnvironmentConfig(const std::shared_ptr<_EnvironmentConfig>& config) = 0;
  // Null without an environment.
  [[nodiscard]] virtual std::shared_ptr<_EnvironmentConfig> GetEnvironmentConfig() = 0;
  // Sends a logical request through the agent; see MultipleURLHttpRequest. Without an environment
  // nothing happens, and nobody is called back. Any thread. Without `post_to_work_thread` it runs
  // on the calling thread if that is a task thread, which must then last until the result.
  virtual void InvokeHttpRequest(const MultipleURLHttpRequest& request,
                                 bool post_to_work_thread) = 0;
};

// Holds the configuration weakly, so that a late callback on any thread finds nothing rather than a
// dead object.
//
// Threads: set once, before the object is shared; read from any thread.
class EnvironmentConfigGetterBase : public IEnvironmentConfigGetter {
 public:
  void SetEnvironmentConfig(const std::shared_ptr<_EnvironmentConfig>& config) override {
    config_ = config;
  }
  std::shared_ptr<_EnvironmentConfig> GetEnvironmentConfig() override { return config_.lock(); }
  void InvokeHttpRequest(const MultipleURLHttpRequest& request, bool post_to_work_thread) override {
    const auto config = GetEnvironmentConfig();
    if (config == nullptr) return;
    if (const auto invoker = config->http_request_invoker()) invoker(request, post_to_work_thread);
  }

 private:
  std::weak_ptr<_EnvironmentConfig> config_;
};

}  // namespace zo_tarvel
