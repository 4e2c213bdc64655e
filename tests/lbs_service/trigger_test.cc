#include <atomic>
#include <string>
#include <vector>

#include "tests/lbs_service/lbs_client.h"
#include "tests/support/event.h"

// What has the service ask for a fresh answer, and what has not.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kTtlOver[] = "[lbs][lbs cache] ttl exhausted need update";

TEST_F(LBSServiceTest, AsksNobodyBeforeItHasAToken) {
  Serve({Answer("fresh")});
  Init();
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  RunAllPosted();
  EXPECT_THAT(RecordedLog::Texts("[lbs][lbs cache]"), IsEmpty());
  EXPECT_THAT(RecordedLog::Texts("[lbs]UpdateLBS"), IsEmpty());
  object()->SetBusinessToken("t");
  EXPECT_EQ(TakeTold().code, 200);
  EXPECT_THAT(server_->requests().at(0).target, HasSubstr("?k=t&"));
  EXPECT_EQ(server_->requests().size(), 1U);
}

TEST_F(LBSServiceTest, AsksSoonWhenItStartsWithATokenAndALocalAnswer) {
  Serve({Answer("fresh")});
  object()->SetBusinessToken("t");
  Init();
  EXPECT_EQ(TakeTold().response, Answer("fresh"));
  EXPECT_TRUE(RecordedLog::Await("[lbs][lbs cache] update lbs after 18000000 ms"));
  EXPECT_THAT(RecordedLog::Texts("[lbs][lbs cache]"),
              ElementsAre("[lbs][lbs cache] update lbs after 20 ms", kTtlOver,
                          "[lbs][lbs cache] update lbs after 18000000 ms"));
}

// --- A new token ---

TEST_F(LBSServiceTest, AnAnswerToTheOldTokenDoesNotCount) {
  server_->Answer(kPath, [&](const SeenRequest& seen) {
    if (seen.target.find("k=new") != std::string::npos) {
      return ServerAnswer{200, {}, Answer("new")};
    }
    asked_.Set();
    EXPECT_TRUE(may_answer_.Await());
    return ServerAnswer{200, {}, Answer("old")};
  });
  Init();
  object()->SetBusinessToken("old");
  EXPECT_TRUE(asked_.Await());
  object()->SetBusinessToken("new");
  EXPECT_EQ(told_.Take().response, Answer("new"));
  may_answer_.Set();
  EXPECT_TRUE(RecordedLog::Await(
      "[lbs] Check response current business token :new request business token:old"));
  EXPECT_TRUE(RecordedLog::Await("[lbs][update]Update complete [stoped] set updating false"));
  RunAllPosted();
  EXPECT_EQ(told_.size(), 0U);
  EXPECT_EQ(TakeSubAnswers().size(), 1U);
  EXPECT_EQ(TextOf(&IZOTarvelLBSService::GetName), "new");
  EXPECT_EQ(Cached("lbs_rsp"), Answer("new"));
}

TEST_F(LBSServiceTest, AnAnswerDoesNotCountWhenTheTokenChangesWhileItIsTold) {
  Serve({Answer("old"), Answer("new")});
  Init();
  service()->SetRequestErrorCollector(
      [](void* user, auto*) { static_cast<IZOTarvelObject*>(user)->SetBusinessToken("new"); },
      object());
  object()->SetBusinessToken("old");
  EXPECT_EQ(TakeTold().response, Answer("new"));
  EXPECT_EQ(told_.size(), 0U);
  EXPECT_EQ(server_->requests().size(), 2U);
}

// --- Another network ---

TEST_F(LBSServiceTest, OnlyANetworkOfAnotherFamilyForcesAnUpdate) {
  Serve({"not good"});
  SetMainUrl("http://localhost:" + std::to_string(server_->port()) + kPath);
  Init();
  object()->SetBusinessToken("t");
  TakeTold();
  server_->Answer(kPath, [&](const SeenRequest& seen) {
    if (seen.target.find("networkType=0") != std::string::npos) {
      asked_.Set();
      EXPECT_TRUE(may_answer_.Await());
    }
    return ServerAnswer{200, {}, Answer("fresh")};
  });
  RecordedLog::Clear();
  for (const auto family : {zo_net::kAddressFamilyIPv4, zo_net::kAddressFamilyIPv4}) {
    object()->NotifyNetworkChanged(family);
  }
  EXPECT_THAT(RecordedLog::Texts("[lbs]UpdateLBS"),
              ElementsAre("[lbs]UpdateLBS force = false AddressFamily:1",
                          "[lbs]UpdateLBS set updatting = true",
                          "[lbs]UpdateLBS force = false AddressFamily:1",
                          "[lbs]UpdateLBS updatting_lbs_ = true,return"));
  EXPECT_TRUE(asked_.Await());  // The query names the network of the moment it is made.
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  EXPECT_EQ(TakeTold().code, 200);
  may_answer_.Set();
  TakeTold();
  EXPECT_EQ(server_->requests().size(), 3U);
}

// --- The client's own wish ---

TEST_F(LBSServiceTest, GathersUpdatesThatAreNotForced) {
  Serve({Answer("fresh")});
  Init();
  service()->Update(kEMAddressFamilyIPv4, false);
  service()->Update(kEMAddressFamilyIPv4, false);
  EXPECT_THAT(RecordedLog::Texts("[lbs]UpdateLBS"), IsEmpty());
  service()->Update(kEMAddressFamilyIPv4, false);
  EXPECT_EQ(RecordedLog::Texts("[lbs]UpdateLBS force = false AddressFamily:1").size(), 1U);
  TakeTold();
  RecordedLog::Clear();
  service()->Update(kEMAddressFamilyIPv4, false);
  service()->Update(kEMAddressFamilyIPv4, false);
  TakeTold();
  const std::int64_t first = RecordedLog::Records("[lbs]Call Update force = false").at(0).at;
  EXPECT_GE(RecordedLog::Records("[lbs]UpdateLBS force = false").at(0).at - first, 1'200);
  EXPECT_EQ(server_->requests().size(), 2U);
}

TEST_F(LBSServiceTest, SendsForcedUpdatesAtOnceAndBesideOthers) {
  std::atomic<int> entered{0};
  Event all;
  server_->Answer(kPath, [&](auto&&) {
    if (++entered == 3) all.Set();
    EXPECT_TRUE(may_answer_.Await());
    return ServerAnswer{200, {}, Answer("fresh")};
  });
  Init();
  service()->Update(kEMAddressFamilyIPv4, true);
  service()->Update(kEMAddressFamilyIPv4, true);
  service()->Update(kEMAddressFamilyIPv4, true);
  EXPECT_TRUE(all.Await());
  may_answer_.Set();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(told_.Take().code, 200);
}

}  // namespace
}  // namespace zo_tarvel
