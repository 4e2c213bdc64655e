#include <future>

#include "tests/support/lbs_client.h"

// When the service asks for a fresh answer, whom it asks, and what the answer changes.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(LBSServiceTest, AsksAgainForAnotherTokenOrFamily) {
  // A host name: it suits both families.
  std::strcpy(settings_.lbs_main_addr, server_->url(kPath).replace(7, 9, "localhost").c_str());
  ServeHeld("networkType=0");
  Init();
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);  // Without a token nothing is asked.
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  RunAllPosted();
  EXPECT_THAT(RecordedLog::Texts("[lbs][lbs cache]"), IsEmpty());
  object()->SetBusinessToken("old");
  EXPECT_TRUE(asked_.Await());
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  EXPECT_EQ(RecordedLog::Texts("[lbs]UpdateLBS").back(),
            "[lbs]UpdateLBS updatting_lbs_ = true,return");
  object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  EXPECT_EQ(told_.Take(), "200 " + Answer("others"));
  object()->SetBusinessToken("new");
  EXPECT_EQ(told_.Take(), "200 " + Answer("others"));
  EXPECT_EQ(sub_answers_.TakeAll().size(), 2U);
  may_answer_.Set();  // The answer to the old token does not count.
  EXPECT_TRUE(RecordedLog::Await("[lbs][update]Update complete [stoped] set updating false"));
  EXPECT_THAT(sub_answers_.TakeAll(), IsEmpty());
  service()->SetRequestErrorCollector(
      [](void* user, auto*) { static_cast<IZOTarvelObject*>(user)->SetBusinessToken("newest"); },
      object());
  Serve({Answer("new"), Answer("newest")});
  EXPECT_EQ(Update(), "200 " + Answer("newest"));
  EXPECT_EQ(server_->requests().size(), 5U);
  RunAllPosted();
  EXPECT_THAT(told_.TakeAll(), IsEmpty());
  EXPECT_EQ(Cache().at("lbs_rsp"), Answer("newest"));
}

TEST_F(LBSServiceTest, WalksThroughItsUrlsAndOutlivesTheirFailure) {
  HttpServer other;
  other.Answer(kPath, [this](auto&&) { return ServerAnswer{.body = Answer("other")}; });
  const std::string fresh = Answer("fresh", R"("lbs.backup":[")" + other.url(kPath) + R"("],)");
  Serve({fresh, "not good"});
  environment_settings_.sv = 42;
  environment_settings_.pv = 5;
  environment_settings_.client_type = 7;
  std::strcpy(environment_settings_.business_version, "1.2.3");
  Restart();
  const std::string dead = "http://127.0.0.1:1/lbs/conf.jsp";  // Nobody listens there.
  std::strcpy(settings_.lbs_main_addr, dead.c_str());
  std::strcpy(settings_.lbs_backup_addrs[1], "mailto:lbs@lbs.test");
  std::strcpy(settings_.lbs_backup_addrs[3], url_.c_str());
  std::strcpy(settings_.def_lbs_host, "lbs.test");
  service()->SetAccIDGetter([](void*, char* buffer) { std::strcpy(buffer, "u:1~"); }, nullptr);
  Init();
  object()->SetBusinessToken("a b&c=d/\xC3\xA9+%-");
  EXPECT_EQ(TakeTold(), "200 " + fresh);
  EXPECT_EQ(Update(), "200 " + Answer("other"));
  other.Answer(kPath, [](auto&&) { return ServerAnswer{503, {}, "busy"}; });
  EXPECT_EQ(Update(), "0 " + Answer("other"));
  EXPECT_TRUE(RecordedLog::Await("[lbs][lbs cache] update lbs after 3600000 ms"));
  const std::string query =
      "?k=a%20b%26c%3Dd%2F%C3%A9%2B%25%2D&id=u%3A1%7E&sv=42&pv=5&tp=7&networkType=0 ";
  EXPECT_THAT(ReadFile(PROTOCOL_PAGE),
              testing::HasSubstr(query.substr(0, query.size() - 1) + "\n"));
  EXPECT_THAT(
      sub_answers_.TakeAll(),
      ElementsAre(testing::StartsWith("0 " + dead + query), "200 " + url_ + query + fresh,
                  "200 " + url_ + query + "not good",
                  "200 " + other.url(kPath) + query + Answer("other"),
                  "200 " + url_ + query + "not good", "503 " + other.url(kPath) + query + "busy"));
  const auto requests = server_->requests();
  EXPECT_EQ(requests[0].header("Host"), "lbs.test");  // The name behind the literal.
  EXPECT_EQ(requests[0].header("X-VELDRIN-APPKEY"), "a b&c=d/\xC3\xA9+%-");
  EXPECT_EQ(requests[0].header("X-VELDRIN-SDKVER"), "1.2.3_7_42");
  const std::string trace_id = requests[0].header("X-VELDRIN-TRACE-ID");
  EXPECT_THAT(trace_id,
              testing::MatchesRegex("[0-9a-f]{16}-[0-9a-f]{8}(-[0-9a-f]{4}){2}-[0-9a-f]{12}"));
  EXPECT_NE(requests[1].header("X-VELDRIN-TRACE-ID").substr(16), trace_id.substr(16));
}

TEST_F(LBSServiceTest, HandsOutTheActiveAnswer) {
  const auto handed_out = [this] {
    _ZOTarvelMsgStatInfo info;
    service()->GetMsgStatInfo(&info);
    std::vector<std::string> all{NextLink(), CurrentLink(),
                                 std::to_string(service()->GetLinkCount()),
                                 info.enable ? std::string(info.host) + " " + info.desc : "off"};
    for (const auto getter : {&IZOTarvelLBSService::GetName, &IZOTarvelLBSService::GetDesc,
                              &IZOTarvelLBSService::GetZEBDL, &IZOTarvelLBSService::GetZEBDLList,
                              &IZOTarvelLBSService::GetZEBList}) {
      all.push_back(TextFrom(getter, service()));
    }
    all.push_back(Response());
    return all;
  };
  const std::string none = "inited=false";
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_THAT(handed_out(),
              ElementsAre("none", "none", "-1", "off", none, none, none, none, none, none));

  std::strcpy(settings_.lbs_backup_addrs[0], "https://b");
  Init();
  settings_.link_list[0][0] = 'x';
  EXPECT_TRUE(service()->Init(settings_));  // Does nothing.
  EXPECT_EQ(NextLink(), "192.0.2.9 9 1");
  EXPECT_EQ(CurrentLink(), "none");
  EXPECT_EQ(Response(), R"({"common": {"desc": "generated locally", "lbs": ")" + url_ +
                            R"(", "lbs.backup": ["https://b"], "link": ["192.0.2.9:9"], )"
                            R"("link.default": ["192.0.2.9:9"], "msg.stat.enable": false, )"
                            R"("ttl": 0, "zeb": ["http://192.0.2.80", "http://198.51.100.80"], )"
                            R"("zebdl": "http://storage.tarvel.invalid", )"
                            R"("zebdls": ["http://storage.tarvel.invalid"]}})");

  const std::string host = "http://" + std::string(600, 'h'), desc(200, 'd');
  const std::string fresh =
      Answer("fresh", R"("zebdl":"http://zeb.test","zebdls":["a","b"],"zeb":[1],"desc":")" + desc +
                          R"(","msg.stat.enable":true,"report":{"host":")" + host + R"("},)");
  Serve({fresh});
  EXPECT_EQ(Update(), "200 " + fresh);
  EXPECT_THAT(handed_out(), ElementsAre("192.0.2.1 81 1", "[2001:db8::2] 82 2", "3",
                                        host.substr(0, 511) + " " + desc.substr(0, 127), "fresh",
                                        desc, "http://zeb.test", R"(["a", "b"])", "[1]", fresh));
  EXPECT_EQ(GetConfig()->statistic_settings().host, host);
  EXPECT_EQ(server_->requests().size(), 1U);
  EXPECT_EQ(Cache().at("def_link_addr"), "192.0.2.99:99");
  EXPECT_EQ(Cache().at("msg_stat_info"),
            R"({"msg_stat_info": {"desc": ")" + desc +
                R"(", "msg_stat_info_api": "/statics/report/im/sdk/msgreceived", )" +
                R"("msg_stat_info_enable": "true", "msg_stat_info_host": ")" + host + R"("}})");
}

TEST_F(LBSServiceTest, AsksOnceForMoreWhenLinksAreUsedUp) {
  const std::vector<std::string> round{"192.0.2.1 81 1", "[2001:db8::2] 82 2", "link.test 83 0",
                                       "192.0.2.99 99 1"};
  Serve({Answer("fresh")});
  Init();
  Update();
  ServeHeld();
  for (const std::string& link : {round[0], round[1], round[2], round[3], round[0]}) {
    EXPECT_EQ(NextLink(), link);  // The fourth is a default, and has a fresh list asked for.
    service()->OnCurrentLinkConnectSucceed("192.0.2.1", 81);
  }
  EXPECT_EQ(NextLink(kEMAddressFamilyIPv6), round[1]);
  EXPECT_EQ(NextLink(kEMAddressFamilyIPv6), round[2]);
  // The default of the settings. An update is under way already.
  EXPECT_EQ(NextLink(kEMAddressFamilyIPv6), "192.0.2.9 9 1");
  EXPECT_EQ(NextLink(), round[0]);
  may_answer_.Set();
  TakeTold();
  EXPECT_EQ(server_->requests().size(), 2U);
  EXPECT_EQ(NextLink(), round[0]);  // Of the new list.
}

TEST_F(LBSServiceTest, WaitsForAnUpdateButNotInACallback) {
  static const auto ask = [](void* user) {
    auto& test = *static_cast<LBSServiceTest*>(user);
    test.told_.Put(test.Response());
  };
  ServeHeld();
  Init();
  service()->SetAccIDGetter([](void* user, char*) { ask(user); }, this);
  service()->SetRequestErrorCollector([](void* user, auto*) { ask(user); }, this);
  service()->SetLBSCallback([](auto, auto, void* user) { ask(user); }, this);
  service()->Update(kEMAddressFamilyIPv6, true);  // The one URL has an IPv4 literal.
  EXPECT_TRUE(RecordedLog::Await("[lbs] LBS addr url list empty!"));
  const std::string local = Response();
  for (int i = 0; i < 3; ++i) service()->Update(kEMAddressFamilyIPv4, false);
  EXPECT_TRUE(RecordedLog::Await("[lbs]UpdateLBS updatting_lbs_ = true,return"));
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_TRUE(asked_.Await());
  RecordedLog::Clear();
  service()->Update(kEMAddressFamilyIPv6, true);
  EXPECT_TRUE(RecordedLog::Await("[lbs] LBS addr url list empty!"));
  auto waiting = std::async(std::launch::async, [this] { return Response(); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_EQ(Response(true), local);
  may_answer_.Set();
  EXPECT_EQ(waiting.get(), Answer("held"));
  EXPECT_EQ(server_->requests().size(), 1U);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(told_.Take(), local);  // Three account ids, one answer.
  EXPECT_EQ(told_.Take(), Answer("held"));
}

}  // namespace
}  // namespace zo_tarvel
