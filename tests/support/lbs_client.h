#pragma once

#include <gmock/gmock.h>
#include <tarvel/tarvel.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/thread/task_thread.h"
#include "base/thread/thread_info.h"
#include "tests/support/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/mailbox.h"
#include "tests/support/temp_directory.h"

namespace zo_tarvel {

inline constexpr char kPath[] = "/lbs/conf.jsp";
inline constexpr char kDeadUrl[] = "http://127.0.0.1:1/lbs/conf.jsp";  // Nobody listens there.

using Getter = void (IZOTarvelLBSService::*)(char*);
using LinkGetter = bool (IZOTarvelLBSService::*)(char*, std::int32_t*, EMAddressFamily*);

// A client of the service with its own files, server and environment. The environment has no
// token, so the service sends no request until a test tells it to.
class LBSServiceTest : public testing::Test {
 public:
  LBSServiceTest() {
    std::strcpy(environment_settings_.appdata_path, directory_.path().c_str());
    environment_settings_.sv = 42;
    environment_settings_.pv = 5;
    environment_settings_.client_type = 7;
    std::strcpy(environment_settings_.business_version, "1.2.3");
    SetUrls({url_});
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
  void Restart() {
    environment_.reset();
    environment_.emplace(environment_settings_);
  }
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
  // The main URL, then the backups.
  void SetUrls(const std::vector<std::string>& urls) {
    std::strcpy(settings_.lbs_main_addr, urls.at(0).c_str());
    for (std::size_t i = 1; i < urls.size(); ++i) {
      std::strcpy(settings_.lbs_backup_addrs[i - 1], urls[i].c_str());
    }
  }

  // Forces an update, and waits for its end.
  std::string Update(EMAddressFamily family = kEMAddressFamilyIPv4) {
    service()->Update(family, true);
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
    auto* const thread = dynamic_cast<zo_base::TaskThread*>(service());
    for (int i = 0; i < 2; ++i) {  // These tasks may post others.
      const auto done = std::make_shared<test_support::Event>();
      thread->PostTask([done] { done->Set(); });
      EXPECT_TRUE(done->Await());
    }
  }

  IZOTarvelObject* object() { return GetTarvelObject(1); }
  IZOTarvelLBSService* service() { return object()->GetLBSService(); }
  template <class F>
  static std::string TextFrom(F getter) {
    std::vector<char> out(kLBSTextBufferSize);
    getter(out.data());
    return out.data();
  }
  std::string TextFrom(Getter getter) {
    return TextFrom([&](char* out) { (service()->*getter)(out); });
  }
  // Waits for an update under way unless `no_wait`.
  std::string Response(bool no_wait = false) {
    return TextFrom([&](char* out) { service()->GetLBSResponse(no_wait, out); });
  }
  // A link address as "host port family".
  std::string LinkOf(LinkGetter getter, EMAddressFamily family) {
    char host[kLinkAddressBufferSize] = {};
    std::int32_t port = -1;
    if (!(service()->*getter)(host, &port, &family)) return "none";
    return host + (" " + std::to_string(port)) + " " + std::to_string(family);
  }
  std::string NextLink(EMAddressFamily wish = kEMAddressFamilyAny) {
    return LinkOf(&IZOTarvelLBSService::GetLinkAddress, wish);
  }
  std::string CurrentLink() {
    return LinkOf(&IZOTarvelLBSService::GetCurrentLinkAddress, kEMAddressFamilyAny);
  }

  // A good answer of this name whose "lbs" is the server. `more` goes into "common".
  std::string Answer(const std::string& name, const std::string& more = "") const {
    return R"({"common":{"link":["192.0.2.1:81","[2001:db8::2]:82","link.test:83"],)"
           R"("link.default":["192.0.2.99:99"],"lbs":")" +
           url_ + R"(",)" + more + R"("name":")" + name + R"("}})";
  }
  static test_support::ServerAnswer GoodAnswer(const std::string& text) { return {200, {}, text}; }
  // The server answers with each of `texts` once, and then always with the last.
  void Serve(std::vector<std::string> texts) {
    const auto next = std::make_shared<std::atomic<std::size_t>>(0);
    server_->Answer(kPath, [texts = std::move(texts), next](auto&&) {
      return GoodAnswer(texts[std::min(next->fetch_add(1), texts.size() - 1)]);
    });
  }
  // The server sets `asked_` at a request with `query`, and answers `text` after `may_answer_`.
  // Other requests get the answer "others" at once.
  void ServeHeld(const std::string& text, const std::string& query = "") {
    server_->Answer(kPath, [this, text, query](const test_support::SeenRequest& seen) {
      if (seen.target.find(query) == std::string::npos) return GoodAnswer(Answer("others"));
      asked_.Set();
      EXPECT_TRUE(may_answer_.Await());
      return GoodAnswer(text);
    });
  }
  std::string CachePath() const { return GetConfig()->appdata_path() + "lbs/lbs.data"; }
  std::string Cached(const std::string& key) const {  // The value in the file.
    return nlohmann::json::parse(test_support::ReadFile(CachePath())).at(key);
  }

  const test_support::TempDirectory directory_;
  test_support::Mailbox<std::string> told_;  // "code response" of the updates that have ended.
  test_support::Mailbox<std::string> sub_answers_;  // "code url body" of the answers.
  test_support::Event asked_;
  test_support::Event may_answer_;
  _ZOTarvelEnvironmentSettings environment_settings_ = test_support::AgentSettings();
  _ZOTarvelLBSSettings settings_;
  std::optional<test_support::HttpServer> server_{std::in_place};
  const std::string url_ = server_->url(kPath);  // Handlers on other threads read it too.
  std::optional<test_support::AgentEnvironment> environment_;
};

}  // namespace zo_tarvel
