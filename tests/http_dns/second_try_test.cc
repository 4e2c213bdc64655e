#include <gmock/gmock.h>
#include <sys/mount.h>

#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/json11.h"
#include "tarvel/http_agent/logic/multiple_url_http_request.h"
#include "tests/http_agent/agent_environment.h"
#include "tests/network/child_process.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
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

// What the client gets.
struct Records {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<TarvelExceptionData> all;
};
std::unique_ptr<Records> records;
void Take(const TarvelExceptionData& data) {
  const std::lock_guard lock(records->mutex);
  records->all.push_back(data);
  records->changed.notify_all();
}
bool AwaitRecords(std::size_t count) {
  std::unique_lock lock(records->mutex);
  return records->changed.wait_for(lock, std::chrono::seconds(20),
                                   [&] { return records->all.size() >= count; });
}

// An environment that knows the addresses of hosts from its file, and asks no HTTPDNS server soon.
class SecondTry {
 public:
  explicit SecondTry(const std::map<std::string, Texts>& hosts, bool reporting = true) {
    records = std::make_unique<Records>();
    auto settings = AgentSettings();
    std::strcpy(settings.appdata_path, directory_.path().c_str());
    settings.enable_httpdns = 0;
    settings.enable_exception_data_reporting = reporting ? 1 : 0;
    const auto config = std::make_shared<_EnvironmentConfig>();
    config->Load(settings);
    const std::string files = config->appdata_path() + "http_dns/";
    std::filesystem::create_directories(files);
    constexpr long long kLater = 4'000'000'000'000;
    const Json::object servers{
        {"host", "none.invalid"}, {"ipv4", "[]"}, {"expired_time", std::to_string(kLater)}};
    WriteFile(files + "http_server_cache.data", Json(servers).dump());
    Json::object entries;
    for (const auto& [host, ips] : hosts) {
      const Json::object entry{{"ipv4", Json::array(ips.begin(), ips.end())},
                               {"cache_expired_time", kLater}};
      entries[host] = Json(entry).dump();
    }
    WriteFile(files + "http_dns_cache.data", Json(entries).dump());
    environment_ = std::make_unique<AgentEnvironment>(settings);
    SetExceptionDataReporter(Take);
  }

  // Sends, and waits for the result and for what comes of it until the exit.
  void Send(const Texts& urls, std::size_t reports) {
    MultipleURLHttpRequest request;
    for (const auto& url : urls) request.urls.push_back({"", url});
    request.context.trace_id = "trace";
    request.headers = {"X-One:1"};
    request.multiple_time_out = 7'000;
    request.check_callback = [this](std::int32_t, std::int32_t code, const std::string& url,
                                    auto&&...) {
      tried.push_back(url);
      return MultipleURLHttpRequest::CheckCallbackResult{code == 200, true, false, "bad"};
    };
    Event done;
    request.result_callback = [&](bool, bool success, const std::string&, const std::string& text) {
      results.push_back((success ? "good " : "bad ") + text);
      done.Set();
    };
    environment_->InvokeHttpRequest(request, true);
    EXPECT_TRUE(done.Await());
    EXPECT_TRUE(AwaitRecords(reports));
    environment_.reset();
  }

  Texts tried;
  Texts results;

 private:
  const TempDirectory directory_;
  std::unique_ptr<AgentEnvironment> environment_;
};

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
    SecondTry good({{"c.example", {"127.0.0.4"}}, {"a.example", {"127.0.0.2", "127.0.0.3"}}});
    const Texts urls{on("c.example", 2), on("a.example", 0), on("a.example", 1),
                     on("a.example", 0)};
    good.Send(urls, 0);
    Texts wanted = urls;
    for (const auto& url :
         {on("127.0.0.2", 0), on("127.0.0.2", 1), on("127.0.0.3", 0), on("127.0.0.3", 1)}) {
      wanted.push_back(url);  // The first with the wrong certificate, two where nobody listens.
    }
    EXPECT_EQ(good.tried, wanted);
    EXPECT_THAT(good.results, ElementsAre("good it is here"));
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
    SecondTry bad({{"t", {"127.0.0.1", "1.2.3.4/evil", "evil.invalid"}}}, false);
    const std::string port = ":" + std::to_string(server.port()) + "/";
    bad.Send({"http://t" + port, "http://127.0.0.1:1/"}, 0);
    EXPECT_THAT(bad.tried,
                ElementsAre("http://t" + port, "http://127.0.0.1:1/", "http://127.0.0.1" + port));
    EXPECT_THAT(bad.results, ElementsAre("bad no"));
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].header("Host"), "t");
    EXPECT_EQ(RecordedLog::Texts("[multiple]Use http dns,host:").size(), 1U);
    const std::string failed = "[multiple]Request return false, use http dns if fail:";
    EXPECT_THAT(RecordedLog::Texts(failed),
                ElementsAre(failed + "true", failed + "false", failed + "false"));
    EXPECT_TRUE(records->all.empty());  // Switched off.
    EXPECT_TRUE(RecordedLog::Texts("[HttpAgent]DNS server").empty());
    return 0;
  });
}

TEST(StatisticsTest, TellOfEachFailedUrlAndWhatSavedTheRequest) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("")) return kNotPermitted;
    HttpServer server;
    server.Answer("/bad", [](const SeenRequest&) {
      return ServerAnswer{500, {{"X-Two", "1:2"}}, "no"};
    });
    server.Answer("/good", [](const SeenRequest&) { return ServerAnswer{200, {}, "yes"}; });
    const Texts urls{"http://localhost:1/x", "http://localhost:1/y", server.url("/bad"),
                     "http://none.invalid/", server.url("/good")};
    SecondTry saved({});
    saved.Send(urls, 4);
    EXPECT_THAT(saved.results, ElementsAre("good yes"));
    EXPECT_EQ(records->all.size(), 4U);
    for (std::size_t i = 0; i < 4; ++i) {
      SCOPED_TRACE(urls[i]);
      const TarvelExceptionData& record = records->all[i];
      EXPECT_EQ(record.process_id, "trace");
      EXPECT_EQ(record.state, 1);
      EXPECT_EQ(record.extension.size(), 1U);
      EXPECT_EQ(record.extension[0].target, urls[i]);
      EXPECT_EQ(record.extension[0].code, i == 2 ? 500 : 0);
      std::string error;
      const Json description = Json::parse(record.extension[0].description, error);
      EXPECT_EQ(description["localhost"].dump(), i < 2 ? R"(["127.0.0.1"])" : "null");
      EXPECT_EQ(description.object_items().count("none.invalid"), 0U);
      EXPECT_EQ(description["error_message"].string_value(), "bad");
      EXPECT_EQ(description["request_header"].dump(),
                R"({"X-One": "1", "X-VELDRIN-TRACE-ID": "trace"})");
      EXPECT_EQ(description["response_header"]["X-Two"].string_value(), i == 2 ? "2" : "");
      EXPECT_EQ(description["corr_info"]["corr_url"].string_value(), urls[4]);
      EXPECT_EQ(description.object_items().size(), i == 2 ? 5U : i < 2 ? 5U : 4U);
    }
    EXPECT_EQ(server.requests()[0].header("X-VELDRIN-TRACE-ID"), "trace");
    EXPECT_FALSE(RecordedLog::Texts("[HttpAgent]DNS server").empty());
    return 0;
  });
}

TEST(StatisticsTest, OfAddressesNeedNoLookup) {
  SecondTry bad({});
  bad.Send({"http://127.0.0.1:1/"}, 1);
  ASSERT_EQ(records->all.size(), 1U);
  EXPECT_TRUE(RecordedLog::Texts("[HttpAgent]DNS server").empty());
}

}  // namespace
}  // namespace zo_tarvel
