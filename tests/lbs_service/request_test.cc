#include <cstring>
#include <string>
#include <vector>

#include "tests/lbs_service/lbs_client.h"
#include "tests/support/certificate_authority.h"
#include "tests/support/nginx_server.h"

// What goes out to the servers, and to which.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::Field;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr char kQuery[] = "?k=t&sv=42&pv=5&tp=7&networkType=0";

class LBSRequestTest : public LBSServiceTest {
 protected:
  // The service starts, and its token has it ask.
  Told AskFirst() {
    Init();
    object()->SetBusinessToken("t");
    return TakeTold();
  }
  std::vector<std::string> TakeAskedUrls() {
    std::vector<std::string> urls;
    for (const SubAnswer& answer : TakeSubAnswers()) urls.push_back(answer.url);
    return urls;
  }
};

TEST_F(LBSRequestTest, NamesTokenAccountVersionsAndNetworkInItsQuery) {
  const struct {
    std::uint32_t family;
    const char* token;
    const char* account;
    const char* query;
  } rows[] = {
      {1, "a b&c=d/\xC3\xA9+%-", "u:1~",
       "k=a%20b%26c%3Dd%2F%C3%A9%2B%25%2D&id=u%3A1%7E&sv=42&pv=5&tp=7&networkType=0"},
      {2, "t", "", "k=t&sv=42&pv=5&tp=7&networkType=1"},
      {0, "t", "me", "k=t&id=me&sv=42&pv=5&tp=7&networkType=2"},
  };
  Serve({Answer("fresh")});
  for (const auto& row : rows) {
    Restart();
    settings_.addr_family = row.family;
    SetMainUrl("http://localhost:" + std::to_string(server_->port()) + kPath);
    service()->SetAccIDGetter(
        [](void* user, char* buffer) { std::strcpy(buffer, static_cast<const char*>(user)); },
        const_cast<char*>(row.account));
    Init();
    object()->SetBusinessToken(row.token);
    EXPECT_EQ(TakeTold().code, 200);
    EXPECT_EQ(server_->requests().back().method, "GET");
    EXPECT_EQ(server_->requests().back().target, std::string(kPath) + "?" + row.query);
    EXPECT_EQ(server_->requests().back().header("X-VELDRIN-APPKEY"), row.token);
  }
}

TEST_F(LBSRequestTest, TellsWhoAsksInItsHeaders) {
  Serve({Answer("fresh")});
  SetMainUrl(url_ + "?zone=1");
  AskFirst();
  const SeenRequest seen = server_->requests().at(0);
  EXPECT_EQ(seen.target, std::string(kPath) + "?zone=1&k=t&sv=42&pv=5&tp=7&networkType=0");
  EXPECT_EQ(seen.header("X-VELDRIN-APPKEY"), "t");
  EXPECT_EQ(seen.header("X-VELDRIN-BUSINESS"), "im_g1");
  EXPECT_EQ(seen.header("X-VELDRIN-SDKVER"), "1.2.3_7_42");
  EXPECT_THAT(seen.header("X-VELDRIN-TRACE-ID"), MatchesRegex(".+"));
}

// Fallback host: what an IP literal in a URL stands for.
TEST_F(LBSRequestTest, GivesAnIPLiteralTheNameOfTheFirstUrlOrOfTheSettings) {
  const struct {
    const char* first_url;
    const char* settings_host;
    const char* host_header;
  } rows[] = {
      {"http://localhost:1/lbs/conf.jsp", "lbs.test", "localhost"},
      {kDeadUrl, "lbs.test", "lbs.test"},
      {"ftp://localhost/lbs/conf.jsp", "lbs.test", "lbs.test"},
      {kDeadUrl, "", "127.0.0.1"},
  };
  Serve({Answer("fresh")});
  SetBackupUrls({url_});
  for (const auto& row : rows) {
    Restart();
    SetMainUrl(row.first_url);
    std::strcpy(settings_.def_lbs_host, row.settings_host);
    AskFirst();
    EXPECT_EQ(server_->requests().back().header("Host"), row.host_header) << row.first_url;
  }
}

TEST_F(LBSRequestTest, WalksThroughTheBackupsOfTheSettingsAndThenThoseOfTheAnswer) {
  HttpServer other;
  const std::string more = R"("lbs.backup":[")" + other.url(kPath) + R"("],)";
  Serve({Answer("fresh", more), "not good"});
  other.Answer(kPath, [this](auto&&) { return ServerAnswer{200, {}, Answer("other")}; });
  SetMainUrl(kDeadUrl);
  SetBackupUrls({"mailto:lbs@lbs.test", url_});
  EXPECT_EQ(AskFirst().response, Answer("fresh", more));
  EXPECT_THAT(TakeAskedUrls(), ElementsAre(std::string(kDeadUrl) + kQuery, url_ + kQuery));
  EXPECT_EQ(Update().response, Answer("other"));
  EXPECT_THAT(TakeAskedUrls(), ElementsAre(url_ + kQuery, other.url(kPath) + kQuery));
}

TEST_F(LBSRequestTest, LeavesOutLiteralsOfTheOtherFamily) {
  const std::string v4 = kDeadUrl;
  const std::string v6 = "http://[::1]:1/lbs/conf.jsp";
  const std::string name = "http://localhost:1/lbs/conf.jsp";
  SetMainUrl(v4);
  SetBackupUrls({v6, name});
  AskFirst();
  EXPECT_THAT(TakeAskedUrls(), ElementsAre(v4 + kQuery, name + kQuery));
  Update(kEMAddressFamilyIPv6);  // Of the call, while the query goes by the settings.
  EXPECT_THAT(TakeAskedUrls(), ElementsAre(v6 + kQuery, name + kQuery));
  Update(kEMAddressFamilyAny);
  EXPECT_THAT(TakeAskedUrls(), ElementsAre(v4 + kQuery, v6 + kQuery, name + kQuery));
}

TEST_F(LBSRequestTest, AsksOverHttpsOnlyWhenToldSo) {
  CertificateAuthority authority;
  NginxOptions options;
  options.listeners = {{.certificate = authority.Issue({"lbs.test"})}};
  options.files = {{"conf.jsp", Answer("over https")}};
  NginxServer server(options);
  // By name: the certificate, which nobody vouches for, isn't looked at.
  const std::string https = "https://localhost:" + std::to_string(server.port()) + "/conf.jsp";
  environment_settings_.only_https_supported = 1;
  Restart();
  SetMainUrl("http://127.0.0.1/lbs/conf.jsp");
  SetBackupUrls({url_, https});
  EXPECT_EQ(AskFirst().response, Answer("over https"));
  EXPECT_THAT(TakeAskedUrls(),
              ElementsAre(std::string("https://127.0.0.1/lbs/conf.jsp") + kQuery, https + kQuery));
  EXPECT_EQ(server_->connections(), 0);
}

}  // namespace
}  // namespace zo_tarvel
