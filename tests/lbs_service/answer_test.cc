#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "tests/lbs_service/lbs_client.h"

// What an answer of the server changes, and for whom.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kTexts[] =
    R"("zebdl":"http://zeb.test","zebdls":["a","b"],"zeb":[1],"desc":"the fresh one",)"
    R"("msg.stat.enable":true,"report":{"host":"stat.test"},)";

TEST_F(LBSServiceTest, AnswersNothingBeforeInitAndFromItsOwnAnswerAfterIt) {
  const struct {
    Getter getter;
    const char* local;
    const char* fresh;
  } rows[] = {
      {&IZOTarvelLBSService::GetZEBDL, kDefaultObjectStorageUrl, "http://zeb.test"},
      {&IZOTarvelLBSService::GetZEBDLList, R"(["http://storage.tarvel.invalid"])", R"(["a", "b"])"},
      {&IZOTarvelLBSService::GetZEBList, R"(["http://192.0.2.80", "http://198.51.100.80"])", "[1]"},
      {&IZOTarvelLBSService::GetName, "", "fresh"},
      {&IZOTarvelLBSService::GetDesc, "generated locally", "the fresh one"},
  };
  for (const auto& row : rows) EXPECT_EQ(TextOf(row.getter), "inited=false");
  EXPECT_EQ(Response(), "inited=false");
  char host[kLinkAddressBufferSize] = {};
  Link link{"", 5, kEMAddressFamilyIPv6};
  EXPECT_FALSE(service()->GetLinkAddress(host, &link.port, &link.family));
  EXPECT_FALSE(service()->GetCurrentLinkAddress(host, &link.port, &link.family));
  link.host = host;
  EXPECT_EQ(link, (Link{"", 5, kEMAddressFamilyIPv6}));
  EXPECT_EQ(service()->GetLinkCount(), -1);
  service()->Update(kEMAddressFamilyAny, true);

  Init();
  settings_.link_list[0][0] = 'x';
  EXPECT_TRUE(service()->Init(settings_));  // Does nothing.
  for (const auto& row : rows) EXPECT_EQ(TextOf(row.getter), row.local);
  EXPECT_EQ(NextLink(), (Link{"192.0.2.9", 9, kEMAddressFamilyIPv4}));
  _ZOTarvelMsgStatInfo info;
  service()->GetMsgStatInfo(&info);
  EXPECT_FALSE(info.enable);

  Serve({Answer("fresh", kTexts)});
  Update();
  for (const auto& row : rows) EXPECT_EQ(TextOf(row.getter), row.fresh);
  service()->GetMsgStatInfo(&info);
  EXPECT_TRUE(info.enable);
  EXPECT_STREQ(info.host, "https://stat.test");
  EXPECT_STREQ(info.desc, "the fresh one");
  EXPECT_EQ(GetConfig()->statistic_settings().host, "https://stat.test");
  EXPECT_EQ(server_->requests().size(), 1U);
}

TEST_F(LBSServiceTest, StoresAFreshAnswerAndTellsOfItOnItsThread) {
  Serve({Answer("fresh")});
  Init();
  const Told told = Update();
  EXPECT_EQ(told.code, 200);
  EXPECT_EQ(told.response, Answer("fresh"));
  EXPECT_EQ(told.thread, "lbs service");
  EXPECT_EQ(Cached("lbs_rsp"), Answer("fresh"));
  EXPECT_EQ(Cached("runntime_lbs"), url_);
  EXPECT_EQ(Cached("root_lbs_addr"), url_);
  EXPECT_EQ(Cached("lbs_ip_version"), "1");
  EXPECT_EQ(Cached("def_link_addr"), "192.0.2.99:99");
}

TEST_F(LBSServiceTest, RotatesLinkAddressesAndAsksOnceForMoreWhenTheyAreUsedUp) {
  const Link first{"192.0.2.1", 81, kEMAddressFamilyIPv4};
  const Link second{"[2001:db8::2]", 82, kEMAddressFamilyIPv6};
  const Link third{"link.test", 83, kEMAddressFamilyAny};
  const Link fallback{"192.0.2.99", 99, kEMAddressFamilyIPv4};
  Serve({Answer("fresh")});
  Init();
  Update();
  EXPECT_EQ(service()->GetLinkCount(), 3);
  for (const Link& link : {first, second, third}) {
    char host[kLinkAddressBufferSize] = {};
    Link current;
    EXPECT_TRUE(service()->GetCurrentLinkAddress(host, &current.port, &current.family));
    current.host = host;
    EXPECT_EQ(current, link);
    EXPECT_EQ(NextLink(), link);
    service()->OnCurrentLinkConnectSucceed(host, current.port);
  }
  ServeHeld(Answer("more"));
  EXPECT_EQ(NextLink(), fallback);  // Which asks.
  EXPECT_EQ(NextLink(kEMAddressFamilyIPv6), second);
  EXPECT_EQ(NextLink(), third);
  EXPECT_EQ(NextLink(), fallback);  // Which finds that it has been asked.
  EXPECT_EQ(NextLink(), first);
  may_answer_.Set();
  TakeTold();
  EXPECT_EQ(server_->requests().size(), 2U);
  EXPECT_EQ(NextLink(), first);  // Of the new list.
}

TEST_F(LBSServiceTest, GoesOnToTheNextUrlWhenAnAnswerIsNoGood) {
  HttpServer bad;
  Serve({Answer("good")});
  SetMainUrl(bad.url(kPath));
  SetBackupUrls({url_});
  const std::string texts[] = {"",
                               "null",
                               "{}",
                               "[]",
                               R"({"common":{"link":[""]}})",
                               Answer("cut off").substr(0, 60),
                               std::string(100'000, '[')};
  for (const std::string& text : texts) {
    bad.Answer(kPath, [&](auto&&) { return ServerAnswer{200, {}, text}; });
    std::filesystem::remove_all(directory_.path() + "/");  // No cached answer.
    Restart();
    Init();
    const Told told = Update();
    EXPECT_EQ(told.code, 200) << text;
    EXPECT_EQ(told.response, Answer("good")) << text;
    const auto answers = TakeSubAnswers();
    ASSERT_EQ(answers.size(), 2U) << text;
    EXPECT_EQ(answers[0].code, 200);
    EXPECT_THAT(answers[0].url, StartsWith(bad.url(kPath)));
    EXPECT_EQ(answers[0].body, text);
    EXPECT_EQ(answers[1].body, Answer("good"));
  }
}

TEST_F(LBSServiceTest, KeepsTheOldAnswerForAnHourWhenAllUrlsFail) {
  HttpServer backup;
  const auto fail = [](auto&&) { return ServerAnswer{503, {}, "busy"}; };
  backup.Answer(kPath, fail);
  const std::string good = Answer("good", R"("lbs.backup":[")" + backup.url(kPath) + R"("],)");
  Serve({good});
  Init();
  Update();
  TakeSubAnswers();
  server_->Answer(kPath, fail);
  const Told told = Update();
  EXPECT_EQ(told.code, 0);
  EXPECT_EQ(told.response, good);
  EXPECT_EQ(NextLink().host, "192.0.2.1");
  const auto answers = TakeSubAnswers();
  ASSERT_EQ(answers.size(), 2U);
  for (const SubAnswer& answer : answers) EXPECT_EQ(answer.code, 503);
  for (const SubAnswer& answer : answers) EXPECT_EQ(answer.body, "busy");
  EXPECT_THAT(answers[1].url, StartsWith(backup.url(kPath)));
  EXPECT_TRUE(RecordedLog::Await("[lbs][lbs cache] update lbs after 3600000 ms"));
}

// --- GetLBSResponse that waits ---

TEST_F(LBSServiceTest, WaitsForTheUpdateUnderWayWhenTheClientWantsItsAnswer) {
  ServeHeld(Answer("fresh"));
  Init();
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_TRUE(asked_.Await());
  auto waiting = std::async(std::launch::async, [this] { return Response(); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_THAT(Response(true), HasSubstr("generated locally"));
  may_answer_.Set();
  EXPECT_EQ(waiting.get(), Answer("fresh"));
}

class LBSCallbackTest : public LBSServiceTest {
 protected:
  static void Ask(void* user) {
    auto* const test = static_cast<LBSCallbackTest*>(user);
    test->responses_.Put(test->Response());
  }
  Mailbox<std::string> responses_;
};

TEST_F(LBSCallbackTest, NeverWaitsForTheUpdateThatItIsPartOf) {
  Serve({Answer("fresh")});
  Init();
  service()->SetAccIDGetter([](void* user, char*) { Ask(user); }, this);
  service()->SetRequestErrorCollector([](void* user, auto*) { Ask(user); }, this);
  service()->SetLBSCallback([](auto, auto, void* user) { Ask(user); }, this);
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_THAT(responses_.Take(), HasSubstr("generated locally"));
  EXPECT_THAT(responses_.Take(), HasSubstr("generated locally"));
  EXPECT_EQ(responses_.Take(), Answer("fresh"));
}

TEST_F(LBSServiceTest, WaitsForNothingWhenThereIsNoUrlToAskAndTheNextForcedUpdateGoesOut) {
  Serve({Answer("fresh")});
  Init();
  service()->Update(kEMAddressFamilyIPv6, true);  // The one URL has an IPv4 literal.
  EXPECT_TRUE(RecordedLog::Await("[lbs] LBS addr url list empty!"));
  Response();
  for (int i = 0; i < 3; ++i) service()->Update(kEMAddressFamilyIPv4, false);
  EXPECT_TRUE(RecordedLog::Await("[lbs]UpdateLBS updatting_lbs_ = true,return"));
  EXPECT_EQ(Update().response, Answer("fresh"));
  EXPECT_EQ(server_->requests().size(), 1U);
}

}  // namespace
}  // namespace zo_tarvel
