#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/json/json11.h"
#include "base/text/strings.h"
#include "tarvel/http_agent/logic/httpdns_service.h"
#include "tests/support/agent_environment.h"
#include "tests/support/event.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_directory.h"

// The HTTPDNS client, with a test in place of the agent: it takes the requests and answers them.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::ElementsAre;
using zo_base::json11::Json;
using Texts = std::vector<std::string>;

constexpr char kServers[] = "http_server_cache.data", kHosts[] = "http_dns_cache.data";
constexpr std::int64_t kNow = 1'700'000'000'000;

std::string File(const std::map<std::string, std::string>& entries) {
  return Json(Json::object(entries.begin(), entries.end())).dump();
}

std::string ServerFile() {
  return File(
      {{"host", "svc.example"},
       {"ipv4", R"([{"host": "192.0.2.7", "port": 0, "https": false}, {"host": "dns.example",
                   "port": 8443}, {"host": "192.0.2.8"}, {"host": "192.0.2.9/evil"},
                   {"host": "0x7f.1"}])"},
       {"ipv6", R"([{"host": "[2001:db8::7]", "port": 8080, "https": true}])"},
       {"expired_time", std::to_string(kNow + 3'600'000)}});
}

class HttpDNSManagerTest : public testing::Test {
 protected:
  ~HttpDNSManagerTest() override {
    if (manager_) manager_->Stop();
  }

  // Starts a manager that finds these files; an empty string means no file.
  void Begin(const std::string& servers, const std::string& hosts = "") {
    std::strcpy(settings_.appdata_path, directory_.path().c_str());
    settings_.single_request_timeout = 4'321;
    settings_.single_request_prefail_timeout = 1'234;
    config_->Load(settings_);
    config_->SetHttpRequestInvoker(
        [this](const MultipleURLHttpRequest& request, bool) { sent_.push_back(request); });
    files_ = config_->appdata_path() + "http_dns/";
    std::filesystem::create_directories(files_);
    if (!servers.empty()) WriteFile(files_ + kServers, servers);
    if (!hosts.empty()) WriteFile(files_ + kHosts, hosts);
    if (manager_) manager_->Stop();
    manager_ = std::make_shared<HttpDNSManager>([] { return kNow; }, clock_);
    manager_->SetEnvironmentConfig(config_);
    EXPECT_TRUE(manager_->Init());
    Settle();
  }
  // Waits until all posted tasks have run, and the tasks that these have posted.
  void Settle() {
    for (int i = 0; i < 5; ++i) {
      Event done;
      manager_->PostTask([&] { done.Set(); });
      ASSERT_TRUE(done.Await());
    }
  }
  void Reload() {
    manager_->PostTask([this] { manager_->DoReload(zo_net::kAddressFamilyAny); });
    Settle();
  }
  // Each with the name behind it.
  Texts UrlsSent(std::size_t request) const {
    Texts urls;
    for (const auto& entry : sent_.at(request).urls)
      urls.push_back(entry.host + " " + entry.url.text());
    return urls;
  }
  void Query(const Texts& hosts) {
    MultipleURLHttpRequestContext context;
    context.trace_id = "trace";
    const auto take = [this](const HostCacheResult& result) {
      std::string& text = results_.emplace_back();
      for (const auto& [host, ips] : result) text += host + "=" + zo_base::Join(ips, ",") + ";";
      return true;
    };
    manager_->InvokeQuery(zo_net::kAddressFamilyAny, hosts, take, context);
    Settle();
  }
  // Gives the request its only answer, with status 200.
  void Answer(std::size_t request, const std::string& body) {
    const bool success = sent_.at(request).check_callback(0, 200, "u", "", body, 0).success;
    sent_[request].result_callback(false, success, "", body);
    Settle();
  }
  Json::object SavedFile(const std::string& name) const {
    std::string error;
    return Json::parse(ReadFile(files_ + name), error).object_items();
  }
  Texts Saved(const std::string& name, const Texts& keys) const {
    const Json file = SavedFile(name);
    Texts values;
    for (const std::string& key : keys) values.push_back(file[key].string_value());
    return values;
  }

  const CapturedLog log_;
  ManualClock clock_;
  const TempDirectory directory_;
  std::string files_;
  // Written on the manager's thread, read after Settle.
  std::vector<MultipleURLHttpRequest> sent_;
  Texts results_;  // Each as "a=1.2.3.4,[::1];b=...;".
  _ZOTarvelEnvironmentSettings settings_;
  const std::shared_ptr<_EnvironmentConfig> config_ = std::make_shared<_EnvironmentConfig>();
  std::shared_ptr<HttpDNSManager> manager_;
};

TEST_F(HttpDNSManagerTest, BeginsWithDefaultsThatItRefreshesAtOnce) {
  Begin("");
  EXPECT_THAT(
      Saved(kServers, {"host", "ttl", "updated_at", "expired_time", "ipv6"}),
      ElementsAre("httpdns.tarvel.invalid", "3600", std::to_string(kNow), std::to_string(kNow),
                  R"([{"host": "[2001:db8::53]", "https": true, "port": 443}, )"
                  R"({"host": "[2001:db8:1::53]", "https": true, "port": 443}])"));
  clock_.Advance(50);
  Settle();
  ASSERT_EQ(sent_.at(0).urls.size(), 7U);
  EXPECT_EQ(UrlsSent(0)[1], "httpdns.tarvel.invalid https://192.0.2.53:443/httpdns/v2/s");
}

TEST_F(HttpDNSManagerTest, AsksForServersWhenTheFileSaysSo) {
  const auto in = [](std::int64_t ms) { return std::to_string(kNow + ms); };
  const std::pair<std::string, std::string> rows[] = {{in(864'000'000), "86400000"},
                                                      {in(2'001), "2001"},
                                                      {in(1'500), "50"},
                                                      {in(-86'400'000), "50"},
                                                      {"9223372036854775807", "86400000"},
                                                      {"99999999999999999999", "50"}};
  for (const auto& [expired_time, delay] : rows) {
    Begin(File({{"host", "h"}, {"ipv4", "[]"}, {"expired_time", expired_time}}));
    EXPECT_EQ(RecordedLog::Texts("[http dns][init] Invoke s after").back(),
              "[http dns][init] Invoke s after " + delay + " ms")
        << expired_time;
  }
}

TEST_F(HttpDNSManagerTest, AsksServersForServersOneRequestAtATime) {
  Begin(ServerFile());
  Reload();
  Reload();
  ASSERT_EQ(sent_.size(), 1U);
  EXPECT_THAT(UrlsSent(0), ElementsAre("svc.example https://svc.example/httpdns/v2/s",
                                       "svc.example http://192.0.2.7:80/httpdns/v2/s",
                                       "svc.example https://[2001:db8::7]:8080/httpdns/v2/s",
                                       "svc.example https://dns.example/httpdns/v2/s",
                                       "svc.example https://192.0.2.8:443/httpdns/v2/s"));
  const auto& request = sent_[0];
  EXPECT_THAT(request.headers, ElementsAre("X-VELDRIN-BUSINESS:im_g1"));
  EXPECT_EQ(request.time_out, 4'321);
  EXPECT_EQ(request.multiple_time_out, 1'234);
  EXPECT_FALSE(request.use_http_dns_if_fail || request.context.trace_id.empty());
  const auto refused = request.check_callback(1, 500, "u", "", "", 0);
  EXPECT_FALSE(refused.success || refused.stop || !refused.add_statistic);
  EXPECT_EQ(refused.error_message, "Function S response code != 200");
}

TEST_F(HttpDNSManagerTest, KeepsAListWithoutUsableReplacement) {
  const std::string list = R"([{"host": "192.0.2.77"}])";
  Begin(ServerFile());
  Reload();
  const std::string answer =
      R"({"host": "new.example", "ttl": 600, "ipv6": [], "ipv4": )" + list + "}";
  Answer(0, answer);
  EXPECT_THAT(ReadFile(PROTOCOL_PAGE), testing::HasSubstr(answer));
  EXPECT_THAT(Saved(kServers, {"ttl", "expired_time", "ipv4", "ipv6"}),
              ElementsAre("600000", std::to_string(kNow + 600'000), list,
                          testing::HasSubstr("2001:db8::7")));
  Reload();
  EXPECT_THAT(UrlsSent(1), ElementsAre("new.example https://new.example/httpdns/v2/s",
                                       "new.example https://192.0.2.77:443/httpdns/v2/s",
                                       "new.example https://[2001:db8::7]:8080/httpdns/v2/s"));
  Answer(1, R"({"host": "x", "ttl": 2592000, "ipv6": [{"host": "2001:db8::9", "port": 1e300},
                {"host": "2001:db8::8", "port": 8}], "ipv4": [{"host": "::1", "no text": "\ud800"},
                {"host": "192.0.2.78", "https": false}]})");
  EXPECT_THAT(Saved(kServers, {"ttl", "ipv4"}), ElementsAre("2592000000", list));
  settings_.only_https_supported = 1;  // Other servers are known, but not asked.
  config_->Load(settings_);
  Reload();
  EXPECT_THAT(UrlsSent(2),
              ElementsAre("x https://x/httpdns/v2/s", "x https://[::1]:443/httpdns/v2/s",
                          "x https://[2001:db8::8]:8/httpdns/v2/s"));
  Answer(2, R"({"host": "x", "ttl": 1, "ipv4": [{"host": "192.0.2.79", "pad": ")" +
                std::string(65'536, ' ') + "\"}]}");
  EXPECT_THAT(Saved(kServers, {"ipv4"}), ElementsAre(list));
}

TEST_F(HttpDNSManagerTest, RetriesAfterOneToFiveMinutes) {
  Begin(ServerFile());
  for (std::size_t request = 0; request < 8; ++request) {
    Reload();
    Answer(request, request == 6 ? R"({"host": "h", "ttl": 600, "ipv4": []})" : "");
  }
  std::string delays;
  for (const std::string& text : RecordedLog::Texts("[http dns] Update fail")) {
    delays += text.substr(text.find(':'));
  }
  EXPECT_EQ(delays, ":60000ms:120000ms:180000ms:240000ms:300000ms:300000ms:60000ms");
}

TEST_F(HttpDNSManagerTest, AsksOnlyForUnknownHostsAndOnce) {
  const auto entry = [](const std::string& ip, int ms) {
    return R"({"ipv4": [")" + ip + R"("], "cache_expired_time": )" + std::to_string(kNow + ms) +
           "}";
  };
  Begin(ServerFile(), File({{"a", entry("192.0.2.1", 3'600'000)},
                            {"b", entry("192.0.2.2", -1)},
                            {"broken", "["},
                            {"evil", entry("evil.example", 3'600'000)}}));
  const std::string too_long(256, 'h');
  Query({"a", "b", "c", "evil", "n&o=t", "d e", "f\\g", "\xff", too_long});  // From "n" on never.
  ASSERT_EQ(sent_.size(), 2U);
  EXPECT_TRUE(results_.empty());
  EXPECT_EQ(UrlsSent(0)[1], "svc.example http://192.0.2.7:80/httpdns/v2/d?domain=c,evil");
  EXPECT_EQ(UrlsSent(1)[0], "svc.example https://svc.example/httpdns/v2/d?domain=b");
  EXPECT_TRUE(sent_[0].headers.empty() && !sent_[0].use_http_dns_if_fail);
  EXPECT_EQ(sent_[0].context.trace_id, "trace");
  const std::string body = R"({"code": 200, "data": {"evil": {"ip": ["192.0.2.6"], "ttl": 1},
      "c": {"ip": ["192.0.2.3"], "ipv6": ["2001:db8::3"], "ttl": 100}}})";
  EXPECT_THAT(ReadFile(PROTOCOL_PAGE), testing::HasSubstr(body));
  Answer(0, body);
  Answer(1, body);    // The body has no addresses for "b".
  Query({"b"});       // Still stale: answered, and asked for again.
  Query({"d", "a"});  // Nobody will know "d".
  Answer(3, "");
  EXPECT_EQ(sent_.size(), 4U);
  EXPECT_THAT(results_,
              ElementsAre("a=192.0.2.1;b=192.0.2.2;c=192.0.2.3,[2001:db8::3];evil=192.0.2.6;",
                          "b=192.0.2.2;", "a=192.0.2.1;"));
  manager_->Stop();                            // A regular exit saves what is used.
  EXPECT_THAT(Saved(kHosts, {"broken", "c"}),  // Unusable entries are not kept.
              ElementsAre("", R"({"cache_expired_time": 1700000090000, "ipv4": ["192.0.2.3"], )"
                              R"("ipv6": ["[2001:db8::3]"], "ttl": 100000})"));
}

TEST_F(HttpDNSManagerTest, WritesTheFileOnceForManyAnswers) {
  Begin(ServerFile());
  std::size_t answers = 0;
  for (const std::size_t burst : {100, 1}) {
    for (const std::size_t end = answers + burst; answers < end; ++answers) {
      const std::string host = std::to_string(answers);
      Query({host});
      Answer(answers,
             R"({"code": 200, "data": {")" + host + R"(": {"ip": ["192.0.2.1"], "ttl": 600}}})");
    }
    EXPECT_EQ(SavedFile(kHosts).size(), answers - burst);
    clock_.Advance(1'000);
    Settle();
    EXPECT_EQ(SavedFile(kHosts).size(), answers);
  }
  Begin(ServerFile());
  EXPECT_EQ(manager_->GetHostCache().Dump().size(), answers);
}

TEST_F(HttpDNSManagerTest, KeepsTheNewestOfVeryManyHosts) {
  std::string file = "{", answer = R"({"code": 200, "data": {)";
  for (int i = 0; i < 20'100; ++i) {
    const std::string key = '"' + std::to_string(i);
    file += key + R"(": "{\"ipv4\": [\"192.0.2.1\"], \"cache_expired_time\": )" +
            std::to_string(kNow + (i <= 10'000 ? 0 : 3'600'000)) + R"(}", )";
    if (i < 12'000) answer += key + R"(.b": {"ip": ["192.0.2.1"], "ttl": 600}, )";
  }
  Begin(ServerFile(), file + R"("junk": ""})");
  Query({"a"});
  Answer(0, answer + R"("a": {"ip": ["192.0.2.2"], "ttl": 1}}})");
  EXPECT_EQ(results_.back(), "a=192.0.2.2;");
  const auto known = manager_->GetHostCache().Dump();
  EXPECT_EQ(known.count("1") + known.count("19999") + known.count("1.b"), 2U);
  manager_->Stop();
  const auto saved = SavedFile(kHosts);  // The next start takes back no more than it may have.
  EXPECT_LE(saved.size(), HttpDNSHostCache::kMostHosts);
  EXPECT_EQ(saved.count("a"), 1U);
}

}  // namespace
}  // namespace zo_tarvel
