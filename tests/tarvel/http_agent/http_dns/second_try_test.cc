#include <gmock/gmock.h>
#include <sys/mount.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/json/json11.h"
#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"
#include "tests/support/agent_environment.h"
#include "tests/support/child_process.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/mailbox.h"
#include "tests/support/nginx_server.h"
#include "tests/support/private_network.h"

// Requests that fail at first, through a whole environment: the second try, and what is reported.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using zo_base::json11::Json;
using Texts = std::vector<std::string>;

struct Outcome {
  Texts tried;
  std::string result;
  std::vector<TarvelExceptionData> reports;
};

// Settings of an environment that finds files of an earlier run: a list of servers that lives for
// years, and the addresses of `hosts`. All lists are in JSON.
_ZOTarvelEnvironmentSettings SettingsOn(const TempDirectory& directory, const std::string& servers,
                                        const std::map<std::string, std::string>& hosts = {}) {
  auto settings = AgentSettings();
  std::strcpy(settings.appdata_path, directory.path().c_str());
  settings.enable_httpdns = 0;
  const auto config = std::make_shared<_EnvironmentConfig>();
  config->Load(settings);
  const std::string files = config->appdata_path() + "http_dns/";
  std::filesystem::create_directories(files);
  const Json list =
      Json::object{{"host", "127.0.0.1"}, {"ipv4", servers}, {"expired_time", "4000000000000"}};
  WriteFile(files + "http_server_cache.data", list.dump());
  Json::object entries;
  for (const auto& [host, ips] : hosts) {
    entries[host] = R"({"cache_expired_time": 4000000000000, "ipv4": )" + ips + "}";
  }
  WriteFile(files + "http_dns_cache.data", Json(entries).dump());
  return settings;
}

// Sends one request to `urls` through such an environment, and awaits so many reports.
Outcome Send(const Texts& urls, std::size_t reports,
             const std::map<std::string, std::string>& hosts = {}, bool reporting = true) {
  const TempDirectory directory;
  auto settings = SettingsOn(directory, "[]", hosts);
  settings.enable_exception_data_reporting = reporting ? 1 : 0;
  static Mailbox<TarvelExceptionData> records;
  Mailbox<std::string> results;
  Outcome outcome;
  MultipleURLHttpRequest request;
  for (const auto& url : urls) request.urls.push_back({"", url});
  request.context.trace_id = "trace";
  request.context.exception_category = 5;
  request.headers = {"X-One:0:1"};
  request.multiple_time_out = 7'000;
  request.check_callback = [&](std::int32_t, std::int32_t code, const std::string& url, auto&&...) {
    outcome.tried.push_back(url);
    return MultipleURLHttpRequest::CheckCallbackResult{code == 200, true, false, "bad"};
  };
  request.result_callback = [&](bool, bool success, const std::string&, const std::string& text) {
    results.Put((success ? "good " : "bad ") + text);
  };
  {
    AgentEnvironment environment(settings);
    SetExceptionDataReporter([](const TarvelExceptionData& data) { records.Put(data); });
    environment.InvokeHttpRequest(request, true);
    outcome.result = results.Take();
    while (outcome.reports.size() < reports) outcome.reports.push_back(records.Take());
  }
  EXPECT_TRUE(results.TakeAll().empty());  // There is exactly one result.
  EXPECT_TRUE(reporting || records.TakeAll().empty());
  return outcome;
}

TEST(SecondTryTest, GoesToTheAddressesUnderTheNamesOwnCertificate) {
  EXPECT_GOOD_CHILD([] {
    CertificateAuthority authority;
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    const char* const store = "/etc/ssl/certs/ca-certificates.crt";
    if (mount(authority.trust_store().c_str(), store, nullptr, MS_BIND, nullptr) != 0) {
      return kNotPermitted;
    }
    NginxServer nginx({.listeners = {{"127.0.0.2", authority.Issue({"b.example"})},
                                     {"127.0.0.3", authority.Issue({"a.example"})},
                                     {"127.0.0.4", authority.Issue({"c.example"})}},
                       .files = {{"x", "it is here"}}});
    const auto on = [&](const std::string& host, int listener) {
      return "https://" + host + ":" + std::to_string(nginx.port(listener)) + "/x";
    };
    const Texts urls{on("c.example", 2), on("a.example", 0), on("a.example", 1),
                     on("a.example", 0)};
    const auto outcome =
        Send(urls, 0,
             {{"c.example", R"(["127.0.0.4"])"}, {"a.example", R"(["127.0.0.2", "127.0.0.3"])"}});
    Texts wanted = urls;
    for (const auto& url :
         {on("127.0.0.2", 0), on("127.0.0.2", 1), on("127.0.0.3", 0), on("127.0.0.3", 1)}) {
      wanted.push_back(
          url);  // The first has the wrong certificate; nobody listens at the next two.
    }
    EXPECT_EQ(outcome.tried, wanted);
    EXPECT_EQ(outcome.result, "good it is here");
    const std::string log = nginx.AccessLog(1);
    EXPECT_THAT(log, HasSubstr(" a.example a.example a.example"));  // Server, Host, SNI.
    EXPECT_THAT(log, testing::Not(HasSubstr("b.example")));
    return 0;
  });
}

TEST(SecondTryTest, IsTheLastAndHasOneResult) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    HttpServer server;
    server.Answer("/", [](const SeenRequest&) { return ServerAnswer{500, {}, "no"}; });
    const std::string port = ":" + std::to_string(server.port()) + "/";
    const std::string no_host = "http://e&k=v:1/";
    const auto outcome = Send({"http://t" + port, "http://127.0.0.1:1/", no_host}, 0,
                              {{"t", R"(["127.0.0.1", "1.2.3.4/evil", "evil.invalid"])"}}, false);
    EXPECT_THAT(outcome.tried, ElementsAre("http://t" + port, "http://127.0.0.1:1/", no_host,
                                           "http://127.0.0.1" + port));
    EXPECT_TRUE(RecordedLog::Texts("[http dns] Begin query hosts`s ips").empty());
    EXPECT_EQ(outcome.result, "bad no");
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].header("Host"), "t");
    EXPECT_TRUE(RecordedLog::Texts("[multiple]Use http dns,host list empty").empty());
    EXPECT_TRUE(RecordedLog::Texts("[HttpAgent]DNS server").empty());
    return 0;
  });
}

TEST(SecondTryTest, AsksNoFurtherServerAfterTheAgentHasStopped) {
  Event asked, stopped, sent, received;
  RawServer server([&](RawConnection& connection) {
    const bool is_query = connection.ReadRequest().starts_with("GET /httpdns/");
    if (is_query) asked.Set();
    if (is_query && !stopped.Await()) return;
    if (connection.Send(HttpAnswer("500 Oops", "")) && is_query) sent.Set();
  });
  const std::string entry =
      R"({"host": "127.0.0.1", "https": false, "port": )" + std::to_string(server.port()) + "}";
  const TempDirectory directory;
  AgentEnvironment environment(SettingsOn(directory, "[" + entry + "," + entry + "]"));
  MultipleURLHttpRequest request;
  request.urls = {{"", "http://localhost:1/"}};
  request.check_callback = [](auto&&...) { return MultipleURLHttpRequest::CheckCallbackResult(); };
  environment.InvokeHttpRequest(request, true);
  ASSERT_TRUE(asked.Await());
  const auto started = [] { return RecordedLog::Texts("[multiple]Send sub url request:").size(); };
  GetStorage()->http_agent->Uninit();
  const auto before = started();
  stopped.Set();
  ASSERT_TRUE(sent.Await());
  // The transport would have delivered that answer before the one to this request.
  const auto later = std::make_shared<WQBASE::network::HttpRequestUser>();
  later->setUrl(server.url("/later"));
  later->callback = [&](auto&&...) { received.Set(); };
  GetHttpClient()->send(later);
  ASSERT_TRUE(received.Await());
  EXPECT_EQ(started(), before);
  EXPECT_EQ(server.connections(), 2);
}

TEST(StatisticsTest, TellOfEachFailureAndItsCorrection) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    HttpServer server;
    server.Answer("/bad", [](const SeenRequest&) {
      return ServerAnswer{500, {{"X-Two", "1:2"}}, "no"};
    });
    const Texts urls{"http://localhost:1/x", server.url("/bad"), "http://none.invalid/",
                     server.url("/good")};
    const std::string common = R"("corr_url": ")" + urls[3] + R"("}, "error_message": "bad", )";
    const std::string rest =
        R"("request_header": {"X-One": "1", "X-VELDRIN-TRACE-ID": "trace"}, "response_body": ")";
    const std::string descriptions[] = {
        common + R"("localhost": ["127.0.0.1"], )" + rest,
        common + rest + R"(no", "response_header": {"Content-Length": "2", "X-Two": "2"}})",
        common + rest};
    const auto outcome = Send(urls, 3);
    EXPECT_EQ(outcome.result, "good ");
    for (std::size_t i = 0; i < 3; ++i) {
      const TarvelExceptionData& record = outcome.reports[i];
      EXPECT_EQ(record.process_id, "trace");
      EXPECT_EQ(record.state, 1);
      EXPECT_EQ(record.exception_service, 5);
      EXPECT_EQ(record.extension.size(), 1U);
      EXPECT_EQ(record.extension.at(0).target, urls[i]);
      EXPECT_EQ(record.extension[0].code, i == 1 ? 500 : 0);
      EXPECT_THAT(record.extension[0].description, HasSubstr(descriptions[i]));
    }
    return 0;
  });
}

}  // namespace
}  // namespace zo_tarvel
