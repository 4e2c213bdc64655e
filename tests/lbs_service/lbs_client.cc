#include "tests/lbs_service/lbs_client.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "base/task_thread.h"
#include "base/thread_info.h"
#include "tests/support/event.h"

namespace zo_tarvel {
namespace {

using test_support::ServerAnswer;

std::string OrEmpty(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

void PrintTo(const Link& link, std::ostream* out) {
  *out << link.host << " port " << link.port << " family " << link.family;
}

LBSServiceTest::LBSServiceTest() : environment_settings_(test_support::AgentSettings()) {
  std::strcpy(environment_settings_.appdata_path, directory_.path().c_str());
  environment_settings_.sv = 42;
  environment_settings_.pv = 5;
  environment_settings_.client_type = 7;
  std::strcpy(environment_settings_.business_version, "1.2.3");
  SetMainUrl(url_);
  std::strcpy(settings_.default_link, "192.0.2.9:9");
  settings_.addr_family = kEMAddressFamilyIPv4;
  settings_.sreq_timeout_ms = 30'000;
  settings_.sreq_pred_fail_time_ms = 30'000;
  Restart();
}

void LBSServiceTest::TearDown() {
  environment_.reset();
  server_.reset();
}

void LBSServiceTest::Restart(const _ZOTarvelEnvironmentSettings& settings) {
  environment_.reset();
  environment_.emplace(settings);
}

void LBSServiceTest::SetCallbacks() {
  service()->SetLBSCallback(
      [](std::int32_t code, const char* response, void* user) {
        static_cast<LBSServiceTest*>(user)->told_.Put(
            {code, response, zo_base::GetCurrentThreadInfo()->name});
      },
      this);
  service()->SetRequestErrorCollector(
      [](void* user, const RequestErrorRecord* record) {
        static_cast<LBSServiceTest*>(user)->sub_answers_.Put(
            {record->code, OrEmpty(record->url), OrEmpty(record->body)});
      },
      this);
}

void LBSServiceTest::Init() {
  SetCallbacks();
  EXPECT_TRUE(service()->Init(settings_));
  RunAllPosted();
}

void LBSServiceTest::SetMainUrl(const std::string& url) {
  std::strcpy(settings_.lbs_main_addr, url.c_str());
}

void LBSServiceTest::SetBackupUrls(const std::vector<std::string>& urls) {
  for (std::size_t i = 0; i < urls.size(); ++i) {
    std::strcpy(settings_.lbs_backup_addrs[i], urls[i].c_str());
  }
}

Told LBSServiceTest::Update(EMAddressFamily family) {
  service()->Update(family, true);
  return TakeTold();
}

Told LBSServiceTest::TakeTold() {
  Told told = told_.Take();
  Response();
  return told;
}

std::vector<SubAnswer> LBSServiceTest::TakeSubAnswers() {
  std::vector<SubAnswer> taken;
  while (sub_answers_.size() > 0) taken.push_back(sub_answers_.Take());
  return taken;
}

void LBSServiceTest::RunAllPosted() {
  auto* const thread = dynamic_cast<zo_base::TaskThread*>(service());
  for (int i = 0; i < 2; ++i) {  // The first tasks of all may post others.
    const auto done = std::make_shared<test_support::Event>();
    thread->PostTask([done] { done->Set(); });
    EXPECT_TRUE(done->Await());
  }
}

Link LBSServiceTest::NextLink(EMAddressFamily wish) {
  char host[kLinkAddressBufferSize] = {};
  Link link{"", -1, wish};
  EXPECT_TRUE(service()->GetLinkAddress(host, &link.port, &link.family));
  link.host = host;
  return link;
}

std::string LBSServiceTest::Answer(const std::string& name, const std::string& more) const {
  return R"({"common":{"link":["192.0.2.1:81","[2001:db8::2]:82","link.test:83"],)"
         R"("link.default":["192.0.2.99:99"],"lbs":")" +
         url_ + R"(",)" + more + R"("name":")" + name + R"("}})";
}

void LBSServiceTest::Serve(std::vector<std::string> texts) {
  const auto next = std::make_shared<std::atomic<std::size_t>>(0);
  server_->Answer(kPath, [texts = std::move(texts), next](auto&&) {
    return ServerAnswer{200, {}, texts[std::min(next->fetch_add(1), texts.size() - 1)]};
  });
}

void LBSServiceTest::ServeHeld(const std::string& text) {
  server_->Answer(kPath, [this, text](auto&&) {
    asked_.Set();
    EXPECT_TRUE(may_answer_.Await());
    return ServerAnswer{200, {}, text};
  });
}

std::string LBSServiceTest::CachePath() const {
  return GetConfig()->appdata_path() + "lbs/lbs.data";
}

std::string LBSServiceTest::Cached(const std::string& key) const {
  return nlohmann::json::parse(test_support::ReadFile(CachePath())).at(key);
}

}  // namespace zo_tarvel
