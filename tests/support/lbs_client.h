#pragma once

#include <gmock/gmock.h>
#include <tarvel/tarvel.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/thread/thread_info.h"
#include "business/tarvel_lbs/tarvel_lbs_service.h"
#include "tarvel/environment/lbs_service_factory.h"
#include "tests/support/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/mailbox.h"
#include "tests/support/temp_directory.h"

namespace zo_tarvel {

inline constexpr char kPath[] = "/lbs/conf.jsp";
inline constexpr std::int64_t kNow = 1'700'000'000'000;

using LinkGetter = bool (IZOTarvelLBSService::*)(char*, std::int32_t*, EMAddressFamily*);

// A client of the service with its own files, server, clock and environment. The environment has no
// token, so the service sends no request until a test tells it to.
class LBSServiceTest : public testing::Test {
 public:
  LBSServiceTest() {
    SetLBSServiceFactory([]() -> std::shared_ptr<IZOTarvelLBSService> {
      return std::make_shared<ZOTarvelLBSServiceImpl>([] { return wall_clock_.load(); });
    });
    wall_clock_ = kNow;
    std::strcpy(environment_settings_.appdata_path, directory_.path().c_str());
    std::strcpy(settings_.lbs_main_addr, url_.c_str());
    std::strcpy(settings_.default_link, "192.0.2.9:9");
    settings_.addr_family = kEMAddressFamilyIPv4;
    settings_.sreq_timeout_ms = 30'000;
    settings_.sreq_pred_fail_time_ms = 30'000;
    Restart();
  }
  void TearDown() override {  // No callback meets destroyed members of a test.
    environment_.reset();
    server_.reset();
  }

  // Starts the environment anew, but not the service.
  void Restart() { environment_.emplace(environment_settings_); }
  // Connects `told_` and `sub_answers_` to the service.
  void SetCallbacks() {
    const auto tell = [](std::int32_t code, const char* response, void* user) {
      EXPECT_EQ(zo_base::GetCurrentThreadInfo()->name, std::string("lbs service"));
      static_cast<LBSServiceTest*>(user)->told_.Put(std::to_string(code) + " " + response);
    };
    const auto collect = [](void* user, const RequestErrorRecord* record) {
      const std::string body = record->body == nullptr ? "" : record->body;
      static_cast<LBSServiceTest*>(user)->sub_answers_.Put(std::to_string(record->code) + " " +
                                                           record->url + " " + body);
    };
    service()->SetLBSCallback(tell, this);
    service()->SetRequestErrorCollector(collect, this);
  }
  // Starts the service on its settings, and waits until its thread has begun.
  void Init() {
    SetCallbacks();
    EXPECT_TRUE(service()->Init(settings_));
    RunAllPosted();
  }

  // Starts the service and an update that the server doesn't answer yet.
  void BeginUpdate() {
    Init();
    ServeHeld("networkType=0");
    service()->Update(kEMAddressFamilyAny, true);
    EXPECT_TRUE(asked_.Await());
  }
  // Forces an update, and waits for its end.
  std::string Update() {
    service()->Update(kEMAddressFamilyIPv4, true);
    return TakeTold();
  }
  // Waits until an update has been told of and has ended.
  std::string TakeTold() {
    std::string told = told_.Take();
    Response();
    return told;
  }
  // Waits until the tasks that were posted to the service's thread have run.
  void RunAllPosted() {
    for (int i = 0; i < 2; ++i) {  // These tasks may post others.
      const auto done = std::make_shared<test_support::Event>();
      dynamic_cast<zo_base::TaskThread*>(service())->PostTask([done] { done->Set(); });
      EXPECT_TRUE(done->Await());
    }
  }

  IZOTarvelObject* object() { return GetTarvelObject(1); }
  IZOTarvelLBSService* service() { return object()->GetLBSService(); }
  // What the function of `call`, its object and first arguments, writes into a buffer.
  template <class... Call>
  static std::string TextFrom(Call... call) {
    std::vector<char> out(kLBSTextBufferSize);
    std::invoke(call..., out.data());
    return out.data();
  }
  // Waits for an update under way unless `no_wait`.
  std::string Response(bool no_wait = false) {
    return TextFrom(&IZOTarvelLBSService::GetLBSResponse, service(), no_wait);
  }
  std::string Name() { return TextFrom(&IZOTarvelLBSService::GetName, service()); }
  // A link address as "host port family".
  std::string NextLink(EMAddressFamily family = kEMAddressFamilyAny,
                       LinkGetter getter = &IZOTarvelLBSService::GetLinkAddress) {
    char host[kLinkAddressBufferSize] = {};
    std::int32_t port = -1;
    if (!(service()->*getter)(host, &port, &family)) return "none";
    return host + (" " + std::to_string(port)) + " " + std::to_string(family);
  }
  std::string CurrentLink() {
    return NextLink(kEMAddressFamilyAny, &IZOTarvelLBSService::GetCurrentLinkAddress);
  }
  // Calls all operations of these but the release.
  void UseAll(IZOTarvelObject* object, IZOTarvelLBSService* service) {
    service->SetLBSCallback(nullptr, nullptr);
    service->SetAccIDGetter(nullptr, nullptr);
    service->SetRequestErrorCollector(nullptr, nullptr);
    EXPECT_TRUE(service->Init(settings_));
    service->Update(kEMAddressFamilyAny, false);
    service->GetLinkAddress(nullptr, nullptr, nullptr);
    service->GetCurrentLinkAddress(nullptr, nullptr, nullptr);
    service->GetLinkCount();
    _ZOTarvelMsgStatInfo info;
    service->GetMsgStatInfo(&info);
    object->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
    object->GetLBSService();
  }

  // A good answer of this name whose "lbs" is the server. `more` goes into "common".
  std::string Answer(const std::string& name, const std::string& more = "") const {
    return R"({"common":{"link":["192.0.2.1:81","[2001:db8::2]:82","link.test:83"],)"
           R"("link.default":["192.0.2.99:99"],"lbs":")" +
           url_ + R"(",)" + more + R"("name":")" + name + R"("}})";
  }
  // The server answers with each of `texts` once, and then always with the last.
  void Serve(std::vector<std::string> texts) {
    const auto next = std::make_shared<std::atomic<std::size_t>>(0);
    server_->Answer(kPath, [texts = std::move(texts), next](auto&&) {
      return test_support::ServerAnswer{.body =
                                            texts[std::min(next->fetch_add(1), texts.size() - 1)]};
    });
  }
  // The server sets `asked_` at a request with `query`, and answers "held" after `may_answer_`.
  // Other requests get the answer "others" at once.
  void ServeHeld(const std::string& query = "") {
    server_->Answer(kPath, [this, query](const test_support::SeenRequest& seen) {
      const bool is_held = seen.target.find(query) != std::string::npos;
      if (is_held) asked_.Set();
      EXPECT_TRUE(!is_held || may_answer_.Await());
      return test_support::ServerAnswer{.body = Answer(is_held ? "held" : "others")};
    });
  }
  std::string CachePath() const { return GetConfig()->appdata_path() + "lbs/lbs.data"; }
  nlohmann::json Cache() const {
    return nlohmann::json::parse(test_support::ReadFile(CachePath()));
  }

  static inline std::atomic<std::int64_t> wall_clock_;
  const test_support::TempDirectory directory_;
  test_support::Mailbox<std::string> told_;  // "code response" of the updates that have ended.
  test_support::Mailbox<std::string> sub_answers_;  // "code url body" of the answers.
  test_support::Event asked_, may_answer_;          // See ServeHeld.
  _ZOTarvelEnvironmentSettings environment_settings_ = test_support::AgentSettings();
  _ZOTarvelLBSSettings settings_;
  std::optional<test_support::HttpServer> server_{std::in_place};
  const std::string url_ = server_->url(kPath);  // Handlers on other threads read it too.
  std::optional<test_support::AgentEnvironment> environment_;
};

}  // namespace zo_tarvel
