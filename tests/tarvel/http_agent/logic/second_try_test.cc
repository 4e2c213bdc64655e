#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "base/json/json11.h"
#include "network/http/trust_settings.h"
#include "tests/support/child_process.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"
#include "tests/support/private_network.h"
#include "tests/tarvel/http_agent/agent_request.h"

// Requests that fail at first: the second try, on addresses, and what is reported.
namespace zo_tarvel {
namespace {

using namespace test_support;
using zo_base::json11::Json;

// Makes the files of an earlier run: a list of no servers that lives for years, and the addresses
// of hosts, each a list in JSON.
void WriteHttpDnsFiles(const _ZOTarvelEnvironmentSettings& settings,
                       const std::map<std::string, std::string>& addresses) {
  const auto config = std::make_shared<_EnvironmentConfig>();
  config->Load(settings);
  const std::string files = config->appdata_path() + "http_dns/";
  std::filesystem::create_directories(files);
  WriteFile(files + "http_server_cache.data",
            R"({"host": "127.0.0.1", "ipv4": "[]", "expired_time": "4000000000000"})");
  Json::object entries;
  for (const auto& [host, list] : addresses) {
    entries[host] = R"({"cache_expired_time": 4000000000000, "ipv4": )" + list + "}";
  }
  WriteFile(files + "http_dns_cache.data", Json(entries).dump());
}

TEST(SecondTryTest, FollowsATotalFailureOnceAndAllIsReported) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    HttpServer server;
    server.Answer("/bad", [](auto&&) { return ServerAnswer{500, {{"X-Two", "1:2"}}, "no"}; });
    const std::string bad = ":" + std::to_string(server.port()) + "/bad";
    const Texts urls{"http://localhost:1/x", "http://127.0.0.1" + bad, "http://e&k=v:1/",
                     "http://t:1/",          "http://t" + bad,         "http://t" + bad};
    for (const bool on : {true, false}) {
      const TempDirectory directory;
      auto settings = AgentSettings();
      std::strcpy(settings.appdata_path, directory.path().c_str());
      settings.enable_httpdns = on ? 0 : -1;
      settings.enable_exception_data_reporting = on ? 1 : 0;
      settings.http_request_ip_preferred = on ? 0 : 1;
      WriteHttpDnsFiles(settings,
                        {{"localhost", R"(["127.0.0.3"])"},
                         {"t", R"(["127.0.0.2", "1.2.3.4/evil", "evil.invalid", "127.0.0.1"])"}});
      AgentEnvironment environment(settings);
      SetExceptionDataReporter(TakeRecord);
      Results results;
      auto request = Request(urls, results);
      request.context.trace_id = "trace";
      request.context.exception_category = 5;
      request.headers = {on ? "X-One:0:1" : "-X-VELDRIN-TRACE-ID:"};
      environment.InvokeHttpRequest(request, true);
      const Result result = results.Take();
      Texts wanted = urls;
      if (on) {
        wanted.insert(wanted.end(),
                      {"http://127.0.0.3:1/x", "http://127.0.0.2:1/", "http://127.0.0.2" + bad,
                       "http://127.0.0.1:1/", "http://127.0.0.1" + bad});
      } else {
        std::swap(wanted[0], wanted[1]);
      }
      EXPECT_EQ(result.tried, wanted);
      EXPECT_EQ(server.requests().back().header("Host"), on ? "t" : "127.0.0.1");
      EXPECT_EQ(server.requests().back().header("X-VELDRIN-TRACE-ID"), on ? "trace" : "");
      EXPECT_TRUE(RecordedLog::Texts(on ? "[http dns] Begin query" : "[http dns]").empty());
      EXPECT_EQ(RecordedLog::Texts("[HttpAgent]DNS server").empty(), !on);
      if (!on) continue;
      std::map<std::string, std::string> descriptions;
      for (int i = 0; i < 10; ++i) {
        const TarvelExceptionData record = records.Take();
        EXPECT_EQ(record.process_id, "trace");
        EXPECT_TRUE(record.state == 1 && record.exception_service == 5 && record.start_time > 0);
        const auto& [operation_type, url, code, description, context] = record.extension.at(0);
        EXPECT_EQ(code, url == urls[1] ? 500 : 0);
        descriptions[url] = description;
      }
      EXPECT_EQ(descriptions.size(), 9U);  // One of the URLs fails in both tries.
      const std::string rest =
          R"("request_header": {"X-One": "1", "X-VELDRIN-TRACE-ID": "trace"}, "response_body": ")";
      EXPECT_THAT(
          descriptions[urls[0]],
          testing::StartsWith(R"({"error_message": "bad", "localhost": ["127.0.0.1"], )" + rest));
      EXPECT_THAT(ReadFile(PROTOCOL_PAGE),
                  testing::HasSubstr("json\n" + descriptions[urls[1]] + "\n```"));
    }
    EXPECT_TRUE(records.TakeAll().empty());
    return 0;
  });
}

TEST(SecondTryTest, TrustsAnAddressOnlyWithTheNamesCertificate) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    CertificateAuthority authority;
    WQBASE::network::TrustAuthoritiesOf(authority.trust_store());
    const NginxServer nginx({.listeners = {{"127.0.0.2", authority.Issue("b.example")},
                                           {"127.0.0.3", authority.Issue("a.example")}}});
    const TempDirectory directory;
    auto settings = AgentSettings();
    std::strcpy(settings.appdata_path, directory.path().c_str());
    settings.enable_httpdns = 0;
    WriteHttpDnsFiles(settings, {{"a.example", R"(["127.0.0.2", "127.0.0.3"])"}});
    AgentEnvironment environment(settings);
    const auto url = [&](const std::string& host, int listener) {
      return "https://" + host + ":" + std::to_string(nginx.port(listener)) + "/index";
    };
    const auto result = Send(environment, {url("a.example", 0), url("a.example", 1)});
    // The first address shows another certificate, and nobody listens at the next two.
    EXPECT_THAT(result.judged, testing::ElementsAre("0:0", "1:0", "0:0", "1:0", "2:0", "3:200"));
    EXPECT_EQ(result.tried.back(), url("127.0.0.3", 1));
    EXPECT_EQ(result.body, "good");
    // Server, Host, SNI.
    EXPECT_THAT(nginx.AccessLog(1), testing::HasSubstr(" a.example a.example a.example "));
    return 0;
  });
}

}  // namespace
}  // namespace zo_tarvel
