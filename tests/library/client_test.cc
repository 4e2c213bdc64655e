// tarvel::Client through the shared library, against a server in this process.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <tarvel/client.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/mailbox.h"
#include "tests/support/temp_directory.h"

namespace tarvel {
namespace {

using namespace std::chrono_literals;
using namespace testing;
using test_support::Event;

constexpr char kAnswer[] = R"({"common": {"lbs": "http://127.0.0.1:1/lbs", "ttl": 3600,
    "link": ["192.0.2.11:8080", "[2001:db8::1]:443"], "link.default": ["192.0.2.99:1"],
    "name": "first", "zebdl": "https://dl.example"}})";

class ClientTest : public Test {
 protected:
  ClientTest() {
    server_.Answer("/lbs", [this](const auto&) {
      ++requests_;
      return test_support::ServerAnswer{.headers = {}, .body = kAnswer};
    });
    settings_.token = "key";
    settings_.directory = directory_.path();
    settings_.lbs_url = server_.url("/lbs");
    settings_.default_link = "192.0.2.9:9";
    settings_.https_only = false;
    settings_.httpdns = false;
  }

  std::string Complaint() {
    std::string error;
    return Client::Start(settings_, error).has_value() ? "started" : error;
  }
  Client Started() {
    std::string error;
    auto client = Client::Start(settings_, error);
    EXPECT_EQ(error, "");
    return std::move(*client);
  }

  std::atomic<int> requests_{0};
  test_support::HttpServer server_;
  test_support::TempDirectory directory_;
  Settings settings_;
};

TEST_F(ClientTest, RefusesSettingsByTheNameOfTheirField) {
  const Settings good = settings_;
  const std::string file = directory_.path() + "/file";
  test_support::WriteFile(file, "");
  const std::string longest(512, 'a');
  const std::pair<std::function<void(Settings&)>, const char*> rows[] = {
      {[](Settings& s) { s.token = ""; }, "token is empty: no server would be asked"},
      {[](Settings& s) { s.token = std::string(129, 'k'); }, "token has more than 128 bytes"},
      {[](Settings& s) { s.token = std::string("a\0b", 3); }, "token contains a control character"},
      {[&](Settings& s) { s.lbs_url = longest + "a"; }, "lbs_url has more than 512 bytes"},
      {[](Settings& s) { s.lbs_url = "lbs.example"; }, "lbs_url is no http or https URL"},
      {[](Settings& s) { s.lbs_url = "http://[::1]:80", s.https_only = true; },
       "lbs_url is an http URL with a port, which https_only leaves out"},
      {[](Settings& s) { s.lbs_host = "\xff"; }, "lbs_host isn't UTF-8"},
      {[](Settings& s) { s.default_link = "[::1]"; }, "default_link is no \"host:port\": [::1]"},
      {[](Settings& s) { s.links = {"a:65536"}; }, "links is no \"host:port\": a:65536"},
      {[](Settings& s) { s.family = Family{3}; }, "family is none of the enumerators"},
      {[](Settings& s) { s.links.assign(6, "a:1"); }, "links has more than 5 entries"},
      {[&](Settings& s) {
         s.backup_lbs_urls = {"http://a", "http://" + longest};
       },
       "backup_lbs_urls has more than 512 bytes"},
      {[](Settings& s) { s.directory = ""; }, "directory is empty"},
      {[&](Settings& s) { s.directory = file; }, "directory can't be made"},
      {[&](Settings& s) { s.log_directory = file + "/sub"; }, "log_directory can't be made"},
      {[](Settings& s) { s.request_timeout = 999ms; },
       "request_timeout is 999 ms, not 1000 to 30000 ms"},
      {[](Settings& s) { s.head_start = 7s; }, "head_start is 7000 ms, not 200 to 6999 ms"},
      {[](Settings& s) { s.silence = 0ms, s.on_silence = [] {}; }, "silence is 0 ms, not 1 to"},
  };
  for (const auto& [change, complaint] : rows) {
    settings_ = good;
    change(settings_);
    EXPECT_THAT(Complaint(), StartsWith(complaint));
  }
  settings_ = good;
  settings_.token = std::string(128, 'k');  // Fills its array.
  settings_.lbs_host = longest;
  EXPECT_EQ(Complaint(), "started");
}

TEST_F(ClientTest, HandsOutWhatTheServerAnswers) {
  EXPECT_THAT(test_support::ReadFile(PROTOCOL_PAGE), HasSubstr(kAnswer));
  test_support::Mailbox<std::string> attempts;
  settings_.on_attempt = [&](const Attempt& attempt) {
    attempts.Put(std::to_string(attempt.status) + ' ' + attempt.url + ' ' + attempt.body);
  };
  settings_.account_id = [] { return std::string("me"); };
  std::optional<Client> client = Started();
  EXPECT_EQ(client->NextLinkAddress()->ToString(), "192.0.2.9:9");
  ASSERT_TRUE(client->WaitForAnswer(10s));
  EXPECT_THAT(attempts.Take(), AllOf(StartsWith("200 " + settings_.lbs_url + "?k=key&id=me&"),
                                     EndsWith(std::string(" ") + kAnswer)));
  EXPECT_EQ(client->LinkCount(), 2);
  EXPECT_EQ(client->CurrentLinkAddress()->host, "192.0.2.11");
  EXPECT_EQ(client->NextLinkAddress()->port, 8080);
  const auto ipv6 = client->NextLinkAddress();
  EXPECT_EQ(ipv6->host, "2001:db8::1");
  EXPECT_EQ(ipv6->ToString(), "[2001:db8::1]:443");
  EXPECT_EQ(ipv6->family, Family::kIPv6);
  EXPECT_EQ(client->AnswerName(), "first");
  EXPECT_EQ(client->DownloadUrl(), "https://dl.example");
  EXPECT_THAT(client->Answer(), HasSubstr("192.0.2.11:8080"));
  EXPECT_FALSE(client->Statistics().enabled);

  client->SetToken("another key");
  Client moved = std::move(*client);
  client.reset();  // Empty: ends nothing.
  EXPECT_EQ(Complaint(), "another client runs");
  EXPECT_FALSE(moved.SetToken(""));
  EXPECT_FALSE(moved.SetToken(std::string(129, 'k')));
  EXPECT_GE(moved.LinkCount(), 0);
}

TEST_F(ClientTest, LeavesAnotherEnvironmentAlone) {
  const auto raw = std::make_unique<zo_tarvel::_ZOTarvelEnvironmentSettings>();
  directory_.path().copy(raw->appdata_path, sizeof raw->appdata_path);
  const int id = zo_tarvel::StartTarvelEnvironment(*raw);
  EXPECT_EQ(Complaint(), "another environment runs");
  EXPECT_NE(zo_tarvel::GetTarvelObject(id), nullptr);
  zo_tarvel::ExitTarvelEnvironment(id);
  EXPECT_EQ(Complaint(), "started");
}

TEST_F(ClientTest, KeepsItsAnswerOverARestart) {
  {
    const Client client = Started();
    ASSERT_TRUE(client.WaitForAnswer(10s));
  }
  server_.Answer("/lbs", [this](const auto&) {
    ++requests_;
    return test_support::ServerAnswer{.status = 503};
  });
  const int requests_before = requests_;
  Client client = Started();
  EXPECT_TRUE(client.WaitForAnswer(10s));
  EXPECT_EQ(requests_, requests_before);
  EXPECT_EQ(client.NextLinkAddress()->host, "192.0.2.11");
}

TEST_F(ClientTest, EndsAWaitWhenTheServerFails) {
  server_.Answer("/lbs", [](const auto&) { return test_support::ServerAnswer{.status = 503}; });
  test_support::Mailbox<std::string> records;
  settings_.on_exception = [&](const ExceptionRecord& record) { records.Put(ToJson(record)); };
  Event failed;
  settings_.on_update = [&](const UpdateResult& result) {
    if (!result.fresh) failed.Set();
  };
  const Client client = Started();
  EXPECT_FALSE(client.WaitForAnswer(1min));
  EXPECT_TRUE(failed.Await());
  EXPECT_THAT(records.Take(), HasSubstr("503"));
}

TEST_F(ClientTest, TellsOfSilence) {
  settings_.lbs_url = "http://[::1]/lbs";  // Of no family in use: an update ends without a word.
  Event silent;
  settings_.silence = 20ms;
  settings_.on_silence = [&] { silent.Set(); };
  const Client client = Started();
  EXPECT_TRUE(silent.Await());
  EXPECT_FALSE(client.WaitForAnswer(0ms));
}

// The last row leaves its log function to the process.
TEST_F(ClientTest, MayEndInEachOfItsCallbacks) {
  struct End {
    std::optional<Client> client;
    std::atomic<bool> wanted{true};
    Event started, done;
  };
  // The function that a callback is. Its own memory must outlive the call.
  const auto function_of = [](const std::shared_ptr<End>& end) {
    return [end, word = std::string(100, 'w')] {
      if (!end->wanted.exchange(false)) return;
      EXPECT_TRUE(end->started.Await());
      static_cast<void>(end->client->WaitForAnswer(1min));  // Doesn't wait: `done` comes sooner.
      end->client.reset();
      EXPECT_EQ(word, std::string(100, 'w'));
      end->done.Set();
    };
  };
  using Row = std::function<void(Settings&, const std::function<void()>&)>;
  const Row rows[] = {
      [](Settings& s, auto& end) { s.on_update = [end](const UpdateResult&) { end(); }; },
      [](Settings& s, auto& end) { s.on_attempt = [end](const Attempt&) { end(); }; },
      [](Settings& s, auto& end) { s.account_id = [end] { return end(), std::string(); }; },
      [](Settings& s, auto& end) {
        s.lbs_url = "http://[::1]/lbs";
        s.silence = 1ms;
        s.on_silence = end;
      },
      [](Settings& s, auto& end) { s.on_log = [end](const char*) { end(); }; },
  };
  const Settings good = settings_;
  for (std::size_t row = 0; row < std::size(rows); ++row) {
    SCOPED_TRACE(row);
    settings_ = good;
    settings_.directory = directory_ / std::to_string(row);
    const auto end = std::make_shared<End>();
    rows[row](settings_, function_of(end));
    end->wanted = !settings_.on_log;  // The start itself logs.
    end->client = Started();
    end->started.Set();
    if (settings_.on_log) {
      end->wanted = true;
      end->client->NextLinkAddress();
    }
    EXPECT_TRUE(end->done.Await());
  }
}

TEST_F(ClientTest, IsLeftAloneByAForkedChild) {
  const Client client = Started();
  const pid_t child = fork();
  if (child == 0) {
    std::string error;
    const bool started = Client::Start(settings_, error).has_value();
    { Client inherited = std::move(const_cast<Client&>(client)); }
    _exit(started || error.empty() ? 1 : 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

// Without other threads at the fork: a sanitizer's child may not make any then.
TEST(ClientAfterForkTest, RunsInAChildOfAProcessThatHadOne) {
  const test_support::TempDirectory directory;
  Settings settings;
  settings.token = "key";
  settings.directory = directory.path();
  settings.httpdns = false;
  std::string error;
  Client::Start(settings, error);
  EXPECT_EQ(error, "");
  const pid_t child = fork();
  if (child == 0) _exit(Client::Start(settings, error).has_value() ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace tarvel
