#pragma once

#include <tarvel/tarvel.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "bench/http_ways.h"
#include "bench/relay.h"
#include "tarvel/environment/configuration/environment_config_getter.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tarvel/http_agent/logic/http_agent.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"
#include "tests/support/test_settings.h"

// The agent as a way to get one URL over and over, see http_ways.h.
namespace tarvel_bench {

// Where the log goes.
enum class Log {
  kNowhere,     // No writer, so no record is built. Without an environment.
  kDropped,     // To a client's function that does nothing.
  kUnopenable,  // To a file that can't be opened.
  kFile,        // To a file: the usual case.
};

// An agent with its HTTP client. With a log they belong to an environment; without one they stand
// alone.
template <Log kLog>
class AgentScope : public zo_tarvel::EnvironmentConfigGetterBase {
 public:
  AgentScope() {
    if constexpr (kLog == Log::kNowhere) {
      StartParts();
    } else {
      id_ = zo_tarvel::StartTarvelEnvironment(Settings());
      SetEnvironmentConfig(zo_tarvel::GetConfig());
    }
  }
  ~AgentScope() override {
    if constexpr (kLog == Log::kNowhere) {
      StopParts();
    } else {
      zo_tarvel::ExitTarvelEnvironment(id_);
      const auto storage = zo_tarvel::GetStorage();
      zo_base::MutexLock lock(storage->custom_log_lock);
      storage->custom_log = nullptr;  // It would outlast the environment.
    }
  }

 private:
  using HttpClient = WQBASE::network::HttpClientEx;

  static zo_tarvel::_ZOTarvelEnvironmentSettings Settings() {
    auto settings = test_support::TestSettings();
    if (kLog == Log::kDropped) settings.custom_log = [](const char*) {};
    if (kLog == Log::kUnopenable) std::strcpy(settings.log_path, "/dev/null");
    return settings;
  }

  void StartParts() {
    config_ = std::make_shared<zo_tarvel::_EnvironmentConfig>();
    config_->Load(Settings());
    SetEnvironmentConfig(config_);
    client_ = std::make_shared<HttpClient>();
    client_->Connect<>(zo_base::SIG_InternalBegin, [raw = client_.get()] { raw->init(); });
    PublishClient(client_);
    client_->Start();
    agent_ = std::make_shared<zo_tarvel::HttpAgent>();
    agent_->SetEnvironmentConfig(config_);
    agent_->Init();
  }
  void StopParts() {
    agent_->Uninit();
    client_->Stop();
    config_->SetExitFlag(true);
    PublishClient(nullptr);
    client_->ReleaseRequestor();
  }
  // Where the agent looks for it.
  static void PublishClient(std::shared_ptr<HttpClient> client) {
    const auto storage = zo_tarvel::GetStorage();
    zo_base::MutexLock lock(storage->published_lock);
    storage->http_client = std::move(client);
  }

  int id_ = 0;
  std::shared_ptr<zo_tarvel::_EnvironmentConfig> config_;
  std::shared_ptr<HttpClient> client_;
  std::shared_ptr<zo_tarvel::HttpAgent> agent_;
};

// A request whose first answer of status 200 is the good one.
inline zo_tarvel::MultipleURLHttpRequest RequestFor200() {
  zo_tarvel::MultipleURLHttpRequest request;
  request.check_callback = [](std::int32_t, std::int32_t code, auto&&...) {
    zo_tarvel::MultipleURLHttpRequest::CheckCallbackResult verdict;
    verdict.success = code == 200;
    return verdict;
  };
  return request;
}

// Sends logical requests one after the other, each over the one URL.
template <Log kLog>
class Agent {
 public:
  Agent(std::string url, std::size_t in_flight) : in_flight_(in_flight) {
    request_ = RequestFor200();
    request_.urls.push_back({"", std::move(url)});
    request_.result_callback = [this](bool, bool success, const std::string&,
                                      const std::string& body) { OnResult(success, body); };
  }

  std::size_t GetAll(std::size_t count) {
    const std::size_t at_once = std::min(in_flight_, count);
    whole_ = 0;
    unanswered_ = count;
    unsent_ = count - at_once;
    for (std::size_t i = 0; i < at_once; ++i) scope_.InvokeHttpRequest(request_, true);
    done_.Take();
    return whole_;
  }

 private:
  void OnResult(bool success, std::string_view body) {
    if (success && body.size() == kAnswerSize) ++whole_;
    if (unsent_ > 0) {
      --unsent_;
      scope_.InvokeHttpRequest(request_, true);
    }
    if (--unanswered_ == 0) done_.Put(true);
  }

  const std::size_t in_flight_;
  zo_tarvel::MultipleURLHttpRequest request_;  // Constant once made.
  // Not locked: set before the first request is sent, then touched on the agent's thread only,
  // until that has put `done_`.
  std::size_t unsent_ = 0;
  std::size_t unanswered_ = 0;
  std::size_t whole_ = 0;
  Mailbox<bool> done_;
  AgentScope<kLog> scope_;  // Last: its threads use the rest.
};

}  // namespace tarvel_bench
