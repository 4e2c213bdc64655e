#include <future>
#include <set>

#include "tests/support/lbs_client.h"

// When the service asks for a fresh answer, whom it asks, and what the answer changes.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

std::string LocalhostUrl(const HttpServer& server) {
  return "http://localhost:" + std::to_string(server.port()) + kPath;
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
  EXPECT_EQ(TextFrom(&IZOTarvelLBSService::GetName), "others");
  EXPECT_EQ(Cached("lbs_rsp"), Answer("others"));
}

TEST_F(LBSServiceTest, AsksOnlyForTheTokenOfTheMoment) {
  Serve({Answer("old"), Answer("new")});
  Init();
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  RunAllPosted();
  EXPECT_THAT(RecordedLog::Texts("[lbs][lbs cache]"), IsEmpty());
  EXPECT_THAT(RecordedLog::Texts("[lbs]UpdateLBS"), IsEmpty());
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
  std::set<std::string> random_parts;  // Of the trace IDs.
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
    const std::string trace_id = seen.header("X-VELDRIN-TRACE-ID");
    EXPECT_THAT(trace_id, MatchesRegex("[0-9a-f]{16}-[0-9a-f]{8}(-[0-9a-f]{4}){2}-[0-9a-f]{12}"));
    EXPECT_TRUE(random_parts.insert(trace_id.substr(16)).second);
  }
}

TEST_F(LBSServiceTest, WalksThroughTheBackupUrls) {
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
  EXPECT_EQ(server_->requests().at(0).header("Host"),
            "lbs.test");  // The name behind the literal.
  EXPECT_THAT(sub_answers_.TakeAll(),
              ElementsAre(StartsWith("0 " + (kDeadUrl + query) + " "),
                          "200 " + url_ + query + " " + Answer("fresh", more)));
  EXPECT_EQ(Update(), "200 " + Answer("other"));
  EXPECT_THAT(sub_answers_.TakeAll(),
              ElementsAre("200 " + url_ + query + " not good",
                          "200 " + other.url(kPath) + query + " " + Answer("other")));
}

// --- What an answer changes ---

constexpr char kTexts[] =
    R"("zebdl":"http://zeb.test","zebdls":["a","b"],"zeb":[1],"desc":"the fresh one",)"
    R"("msg.stat.enable":true,"report":{"host":"stat.test"},)";

TEST_F(LBSServiceTest, HandsOutTheTextsOfTheActiveAnswer) {
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
  for (const auto& row : rows) EXPECT_EQ(TextFrom(row.getter), "inited=false");
  EXPECT_EQ(Response(), "inited=false");
  EXPECT_EQ(NextLink(), "none");
  EXPECT_EQ(CurrentLink(), "none");
  EXPECT_EQ(service()->GetLinkCount(), -1);
  service()->Update(kEMAddressFamilyAny, true);

  Init();
  settings_.link_list[0][0] = 'x';
  EXPECT_TRUE(service()->Init(settings_));  // Does nothing.
  for (const auto& row : rows) EXPECT_EQ(TextFrom(row.getter), row.local);
  EXPECT_EQ(NextLink(), "192.0.2.9 9 1");
  _ZOTarvelMsgStatInfo info;
  service()->GetMsgStatInfo(&info);
  EXPECT_FALSE(info.enable);

  Serve({Answer("fresh", kTexts)});
  EXPECT_EQ(Update(), "200 " + Answer("fresh", kTexts));
  for (const auto& row : rows) EXPECT_EQ(TextFrom(row.getter), row.fresh);
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

TEST_F(LBSServiceTest, AsksOnceForMoreWhenLinksAreUsedUp) {
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
  EXPECT_EQ(CurrentLink(), "none");
  ServeHeld(Answer("more"));
  EXPECT_EQ(NextLink(), fallback);  // Asks for a fresh list.
  EXPECT_EQ(NextLink(kEMAddressFamilyIPv6), second);
  EXPECT_EQ(NextLink(), third);
  EXPECT_EQ(NextLink(), fallback);  // An update is under way already.
  EXPECT_EQ(NextLink(), first);
  may_answer_.Set();
  TakeTold();
  EXPECT_EQ(server_->requests().size(), 2U);
  EXPECT_EQ(NextLink(), first);  // Of the new list.
}

TEST_F(LBSServiceTest, KeepsTheOldAnswerWhenAllUrlsFail) {
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

TEST_F(LBSServiceTest, NeverWaitsForItsOwnUpdate) {
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

TEST_F(LBSServiceTest, WaitsOnlyForAnUpdateThatAsksAUrl) {
  ServeHeld(Answer("fresh"));
  Init();
  service()->Update(kEMAddressFamilyIPv6, true);  // The one URL has an IPv4 literal.
  EXPECT_TRUE(RecordedLog::Await("[lbs] LBS addr url list empty!"));
  Response();
  for (int i = 0; i < 3; ++i) service()->Update(kEMAddressFamilyIPv4, false);
  EXPECT_TRUE(RecordedLog::Await("[lbs]UpdateLBS updatting_lbs_ = true,return"));
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_TRUE(asked_.Await());
  RecordedLog::Clear();
  service()->Update(kEMAddressFamilyIPv6, true);
  EXPECT_TRUE(RecordedLog::Await("[lbs] LBS addr url list empty!"));
  auto waiting = std::async(std::launch::async, [this] { return Response(); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_THAT(Response(true), HasSubstr("generated locally"));
  may_answer_.Set();
  EXPECT_EQ(waiting.get(), Answer("fresh"));
  EXPECT_EQ(server_->requests().size(), 1U);
}

}  // namespace
}  // namespace zo_tarvel
