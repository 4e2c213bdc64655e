#include <cstring>
#include <string>

#include "tests/lbs_service/lbs_client.h"

// What has the service ask for a fresh answer and what has not, what goes out, and to whom.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string LocalhostUrl(const HttpServer& server) {
  return "http://localhost:" + std::to_string(server.port()) + kPath;
}

TEST_F(LBSServiceTest, AsksNobodyBeforeItHasAToken) {
  Serve({Answer("fresh")});
  Init();
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  RunAllPosted();
  EXPECT_THAT(RecordedLog::Texts("[lbs][lbs cache]"), IsEmpty());
  EXPECT_THAT(RecordedLog::Texts("[lbs]UpdateLBS"), IsEmpty());
  object()->SetBusinessToken("t");
  TakeTold();
  EXPECT_THAT(server_->requests().at(0).target, HasSubstr("?k=t&"));
  EXPECT_EQ(server_->requests().size(), 1U);
}

TEST_F(LBSServiceTest, AnAnswerToTheOldTokenDoesNotCount) {
  ServeHeld(Answer("old"), "k=old");
  Init();
  object()->SetBusinessToken("old");
  EXPECT_TRUE(asked_.Await());
  object()->SetBusinessToken("new");
  EXPECT_EQ(told_.Take(), "200 " + Answer("others"));
  may_answer_.Set();
  EXPECT_TRUE(RecordedLog::Await(
      "[lbs] Check response current business token :new request business token:old"));
  EXPECT_TRUE(RecordedLog::Await("[lbs][update]Update complete [stoped] set updating false"));
  RunAllPosted();
  EXPECT_THAT(told_.TakeAll(), IsEmpty());
  EXPECT_EQ(sub_answers_.TakeAll().size(), 1U);
  EXPECT_EQ(TextOf(&IZOTarvelLBSService::GetName), "others");
  EXPECT_EQ(Cached("lbs_rsp"), Answer("others"));
}

TEST_F(LBSServiceTest, AnAnswerDoesNotCountWhenTheTokenChangesWhileItIsTold) {
  Serve({Answer("old"), Answer("new")});
  Init();
  service()->SetRequestErrorCollector(
      [](void* user, auto*) { static_cast<IZOTarvelObject*>(user)->SetBusinessToken("new"); },
      object());
  object()->SetBusinessToken("old");
  EXPECT_EQ(TakeTold(), "200 " + Answer("new"));
  EXPECT_THAT(told_.TakeAll(), IsEmpty());
  EXPECT_EQ(server_->requests().size(), 2U);
}

TEST_F(LBSServiceTest, OnlyANetworkOfAnotherFamilyForcesAnUpdate) {
  SetUrls({LocalhostUrl(*server_)});
  ServeHeld(Answer("held"), "networkType=0");
  Init();
  object()->SetBusinessToken("t");
  EXPECT_TRUE(asked_.Await());
  RecordedLog::Clear();
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  EXPECT_THAT(RecordedLog::Texts("[lbs]UpdateLBS"),
              ElementsAre("[lbs]UpdateLBS force = false AddressFamily:1",
                          "[lbs]UpdateLBS updatting_lbs_ = true,return"));
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  EXPECT_EQ(told_.Take(), "200 " + Answer("others"));
  may_answer_.Set();
  EXPECT_EQ(TakeTold(), "200 " + Answer("held"));
  EXPECT_EQ(server_->requests().size(), 2U);
}

TEST_F(LBSServiceTest, GathersUpdatesThatAreNotForced) {
  Serve({Answer("fresh")});
  Init();
  const auto update = [this](int times) {
    for (int i = 0; i < times; ++i) service()->Update(kEMAddressFamilyIPv4, false);
    return RecordedLog::Records("[lbs]UpdateLBS force = false").size();
  };
  EXPECT_EQ(update(2), 0U);
  EXPECT_EQ(update(1), 1U);
  TakeTold();
  RecordedLog::Clear();
  EXPECT_EQ(update(2), 0U);
  TakeTold();
  const std::int64_t first = RecordedLog::Records("[lbs]Call Update force = false").at(0).at;
  EXPECT_GE(RecordedLog::Records("[lbs]UpdateLBS force = false").at(0).at - first, 1'200);
  EXPECT_EQ(server_->requests().size(), 2U);
}

TEST_F(LBSServiceTest, NamesTokenAccountVersionsAndNetworkInItsRequest) {
  const struct {
    std::uint32_t family;
    const char* token;
    const char* account;
    const char* query;
  } rows[] = {{1, "a b&c=d/\xC3\xA9+%-", "u:1~",
               "?k=a%20b%26c%3Dd%2F%C3%A9%2B%25%2D&id=u%3A1%7E&sv=42&pv=5&tp=7&networkType=0"},
              {2, "t", "", "?k=t&sv=42&pv=5&tp=7&networkType=1"},
              {0, "t", "me", "?k=t&id=me&sv=42&pv=5&tp=7&networkType=2"}};
  Serve({Answer("fresh")});
  SetUrls({LocalhostUrl(*server_)});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.query);
    Restart();
    settings_.addr_family = row.family;
    service()->SetAccIDGetter(
        [](void* user, char* buffer) { std::strcpy(buffer, static_cast<const char*>(user)); },
        const_cast<char*>(row.account));
    Init();
    object()->SetBusinessToken(row.token);
    TakeTold();
    const SeenRequest seen = server_->requests().back();
    EXPECT_EQ(seen.method + " " + seen.target, std::string("GET ") + kPath + row.query);
    EXPECT_EQ(seen.header("X-VELDRIN-APPKEY"), row.token);
    EXPECT_EQ(seen.header("X-VELDRIN-BUSINESS"), "im_g1");
    EXPECT_EQ(seen.header("X-VELDRIN-SDKVER"), "1.2.3_7_42");
    EXPECT_NE(seen.header("X-VELDRIN-TRACE-ID"), "");
  }
}

TEST_F(LBSServiceTest, WalksThroughTheBackupsOfTheSettingsAndThenThoseOfTheAnswer) {
  HttpServer other;
  other.Answer(kPath, [this](auto&&) { return GoodAnswer(Answer("other")); });
  const std::string more = R"("lbs.backup":[")" + other.url(kPath) + R"("],)";
  const std::string query = "?k=t&sv=42&pv=5&tp=7&networkType=0";
  Serve({Answer("fresh", more), "not good"});
  SetUrls({kDeadUrl, "mailto:lbs@lbs.test", url_});
  std::strcpy(settings_.def_lbs_host, "lbs.test");
  Init();
  object()->SetBusinessToken("t");
  EXPECT_EQ(TakeTold(), "200 " + Answer("fresh", more));
  EXPECT_EQ(server_->requests().at(0).header("Host"), "lbs.test");  // What the literal stands for.
  EXPECT_THAT(sub_answers_.TakeAll(),
              ElementsAre(testing::StartsWith("0 " + (kDeadUrl + query) + " "),
                          "200 " + url_ + query + " " + Answer("fresh", more)));
  EXPECT_EQ(Update(), "200 " + Answer("other"));
  EXPECT_THAT(sub_answers_.TakeAll(),
              ElementsAre("200 " + url_ + query + " not good",
                          "200 " + other.url(kPath) + query + " " + Answer("other")));
}

TEST_F(LBSServiceTest, AsksOverHttpsOnlyWhenToldSo) {
  environment_settings_.only_https_supported = 1;
  Restart();
  SetUrls({"http://127.0.0.1/lbs/conf.jsp", url_});
  Init();
  Update();
  EXPECT_THAT(sub_answers_.TakeAll(), ElementsAre(HasSubstr(" https://127.0.0.1/lbs/conf.jsp?")));
  EXPECT_EQ(server_->connections(), 0);
}

}  // namespace
}  // namespace zo_tarvel
