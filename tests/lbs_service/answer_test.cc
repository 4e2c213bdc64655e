#include <chrono>
#include <future>
#include <string>

#include "tests/lbs_service/lbs_client.h"

// What an answer of the server changes, and for whom.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr char kTexts[] =
    R"("zebdl":"http://zeb.test","zebdls":["a","b"],"zeb":[1],"desc":"the fresh one",)"
    R"("msg.stat.enable":true,"report":{"host":"stat.test"},)";

TEST_F(LBSServiceTest, AnswersNothingBeforeInitThenFromItsOwnAnswerThenFromAFreshOne) {
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
  EXPECT_EQ(NextLink(), "none");
  EXPECT_EQ(CurrentLink(), "none");
  EXPECT_EQ(service()->GetLinkCount(), -1);
  service()->Update(kEMAddressFamilyAny, true);

  Init();
  settings_.link_list[0][0] = 'x';
  EXPECT_TRUE(service()->Init(settings_));  // Does nothing.
  for (const auto& row : rows) EXPECT_EQ(TextOf(row.getter), row.local);
  EXPECT_EQ(NextLink(), "192.0.2.9 9 1");
  _ZOTarvelMsgStatInfo info;
  service()->GetMsgStatInfo(&info);
  EXPECT_FALSE(info.enable);

  Serve({Answer("fresh", kTexts)});
  EXPECT_EQ(Update(), "200 " + Answer("fresh", kTexts));
  for (const auto& row : rows) EXPECT_EQ(TextOf(row.getter), row.fresh);
  service()->GetMsgStatInfo(&info);
  EXPECT_TRUE(info.enable);
  EXPECT_STREQ(info.host, "https://stat.test");
  EXPECT_STREQ(info.desc, "the fresh one");
  EXPECT_EQ(GetConfig()->statistic_settings().host, "https://stat.test");
  EXPECT_EQ(server_->requests().size(), 1U);
  EXPECT_EQ(Cached("lbs_rsp"), Answer("fresh", kTexts));
  EXPECT_EQ(Cached("runntime_lbs"), url_);
  EXPECT_EQ(Cached("root_lbs_addr"), url_);
  EXPECT_EQ(Cached("lbs_ip_version"), "1");
  EXPECT_EQ(Cached("def_link_addr"), "192.0.2.99:99");
  EXPECT_EQ(Cached("msg_stat_info"),
            R"({"msg_stat_info": {"desc": "the fresh one", )"
            R"("msg_stat_info_api": "/statics/report/im/sdk/msgreceived", )"
            R"("msg_stat_info_enable": "true", "msg_stat_info_host": "https://stat.test"}})");
}

TEST_F(LBSServiceTest, RotatesLinkAddressesAndAsksOnceForMoreWhenTheyAreUsedUp) {
  const std::string first = "192.0.2.1 81 1", second = "[2001:db8::2] 82 2",
                    third = "link.test 83 0", fallback = "192.0.2.99 99 1";
  Serve({Answer("fresh")});
  Init();
  Update();
  EXPECT_EQ(service()->GetLinkCount(), 3);
  for (const std::string& link : {first, second, third}) {
    EXPECT_EQ(CurrentLink(), link);
    EXPECT_EQ(NextLink(), link);
    service()->OnCurrentLinkConnectSucceed("192.0.2.1", 81);
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

TEST_F(LBSServiceTest, KeepsTheOldAnswerForAnHourWhenAllUrlsFail) {
  const std::string good = Answer("good", R"("lbs.backup":["http://127.0.0.1:1/"],)");
  Serve({good});
  Init();
  Update();
  EXPECT_EQ(Cached("lbs_backup_addr"), R"(["http://127.0.0.1:1/"])");
  sub_answers_.TakeAll();
  server_->Answer(kPath, [](auto&&) { return ServerAnswer{503, {}, "busy"}; });
  EXPECT_EQ(Update(), "0 " + good);
  EXPECT_EQ(NextLink(), "192.0.2.1 81 1");
  EXPECT_THAT(sub_answers_.TakeAll(), ElementsAre(MatchesRegex("503 " + url_ + ".* busy"),
                                                  StartsWith("0 http://127.0.0.1:1/")));
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

TEST_F(LBSServiceTest, NeverWaitsForTheUpdateThatItIsPartOf) {
  static const auto ask = [](void* user) {
    auto& test = *static_cast<LBSServiceTest*>(user);
    test.told_.Put(test.Response());
  };
  Serve({Answer("fresh")});
  Init();
  service()->SetAccIDGetter([](void* user, char*) { ask(user); }, this);
  service()->SetRequestErrorCollector([](void* user, auto*) { ask(user); }, this);
  service()->SetLBSCallback([](auto, auto, void* user) { ask(user); }, this);
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_THAT(told_.Take(), HasSubstr("generated locally"));
  EXPECT_THAT(told_.Take(), HasSubstr("generated locally"));
  EXPECT_EQ(told_.Take(), Answer("fresh"));
}

TEST_F(LBSServiceTest, WaitsForNothingWhenThereIsNoUrlToAskAndTheNextForcedUpdateGoesOut) {
  Serve({Answer("fresh")});
  Init();
  service()->Update(kEMAddressFamilyIPv6, true);  // The one URL has an IPv4 literal.
  EXPECT_TRUE(RecordedLog::Await("[lbs] LBS addr url list empty!"));
  Response();
  for (int i = 0; i < 3; ++i) service()->Update(kEMAddressFamilyIPv4, false);
  EXPECT_TRUE(RecordedLog::Await("[lbs]UpdateLBS updatting_lbs_ = true,return"));
  EXPECT_EQ(Update(), "200 " + Answer("fresh"));
  EXPECT_EQ(server_->requests().size(), 1U);
}

}  // namespace
}  // namespace zo_tarvel
