#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "base/file/whole_file.h"
#include "tests/support/lbs_client.h"

// The life time of answers, and their cache.
namespace zo_tarvel {
namespace {

using namespace test_support;

constexpr std::int64_t kHour = 3'600'000;
constexpr std::int64_t kDay = 24 * kHour;

class LBSCacheTest : public LBSServiceTest {
 protected:
  LBSCacheTest() {
    std::filesystem::create_directories(std::filesystem::path(CachePath()).parent_path());
  }

  // Starts with a token and a cached answer. In the file, `key` has this value; an empty one
  // removes the key.
  void StartWithCache(const std::string& key, const std::string& value) {
    Restart();
    nlohmann::json cache = cache_;
    cache[key] = value;
    if (value.empty()) cache.erase(key);
    WriteFile(CachePath(), cache.dump());
    object()->SetBusinessToken("t");
    Init();
  }

  const nlohmann::json cache_ = {{"lbs_rsp", Answer("cached")},
                                 {"root_lbs_addr", url_},
                                 {"runntime_lbs", url_},
                                 {"lbs_ip_version", "1"}};
};

TEST_F(LBSCacheTest, AsksInTimeWhateverFileClockAndAnswerSay) {
  const struct {
    std::int64_t clock;
    std::string expire_time;    // In the file.
    std::int64_t update_after;  // The start.
    const char* ttl;            // Of the next answer.
    std::int64_t lifetime;
    std::int64_t next_update_after;
  } rows[] = {
      {kNow, std::to_string(kNow + kHour), kHour, R"("ttl":10,)", 10'000, 10'000},
      {kNow, std::to_string(kNow), 20, "", kDay / 2, 5 * kHour},
      // The clock has jumped.
      {kNow - kDay, std::to_string(kNow + kDay / 2), 5 * kHour, R"("ttl":3600,)", kHour, kHour},
      {kNow + 365 * kDay, std::to_string(kNow + kDay / 2), 20, R"("ttl":3600,)", kHour, kHour},
      {kNow, "99999999999999999999", 20, R"("ttl":999999999,)", 999'999'999'000, 5 * kHour},
      {-kDay, "9223372036854775807", 5 * kHour, R"("ttl":10,)", 10'000, 60'000},
      // This answer has expired when it arrives.
      {kNow, "-9223372036854775808", 20, R"("desc":"generated locally",)", 0, 60'000},
      // The cached answer's life time begins now, and stays that of the fresh one.
      {kNow, "", 5 * kHour, R"("ttl":-1,)", kDay / 2, 5 * kHour},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expire_time + " at " + std::to_string(row.clock) + row.ttl);
    wall_clock_ = row.clock;
    StartWithCache("expire_time", row.expire_time);
    Serve({Answer("fresh", row.ttl)});
    EXPECT_EQ(Update(), "200 " + Answer("fresh", row.ttl));
    EXPECT_EQ(Cache().at("expire_time"), std::to_string(row.clock + row.lifetime));
    EXPECT_TRUE(RecordedLog::Await("[lbs]UpdateLBS set updatting = false"));
    const std::string begin = "[lbs][lbs cache] update lbs after ";
    const auto delays = RecordedLog::Texts(begin);
    EXPECT_EQ(delays.at(0), begin + std::to_string(row.update_after) + " ms");
    EXPECT_EQ(delays.at(1), begin + std::to_string(row.next_update_after) + " ms");
  }
  StartWithCache("expire_time", "0");
  TakeTold();
  const std::int64_t called = RecordedLog::Records("[lbs]Call Update force = false").at(0).at;
  EXPECT_GE(RecordedLog::Records("[lbs]UpdateLBS force = false").at(0).at - called, 1'200);
}

TEST_F(LBSCacheTest, StartsFromItsSettingsUnlessACacheFitsThem) {
  const std::string cached = "3 192.0.2.1 81 1", ipv4 = "1 192.0.2.9 9 1",
                    ipv6 = "1 [2001:db8::9] 9 2", both = "2 192.0.2.9 9 1";
  const struct {
    std::uint32_t family;  // Of the settings.
    std::string links;     // How many, and the first.
    const char* key;
    std::string value;
  } rows[] = {
      {1, ipv4, "lbs_rsp", ""},
      {2, ipv6, "lbs_rsp", ""},
      {0, both, "lbs_rsp", ""},
      {0xffffffff, ipv4, "lbs_rsp", ""},
      {1, ipv4, "lbs_rsp", R"({"common": {"link": ["192.0.2.1:81"], "lbs": "no good"}})"},
      {1, ipv4, "lbs_rsp", Answer("long") + std::string(kLBSTextBufferSize, ' ')},
      {1, ipv4, "runntime_lbs", ""},
      {1, ipv4, "root_lbs_addr", "https://other"},
      {1, ipv4, "lbs_ip_version", "2"},
      {0, cached, "lbs_ip_version", "2"},
      {2, cached, "lbs_ip_version", "0"},
      {1, cached, "lbs_ip_version", ""},
      {2, ipv6, "lbs_ip_version", ""},
      {1, cached, "of no use", "x"},
  };
  std::strcpy(settings_.default_link_ipv6, "[2001:db8::9]:9");
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.family) + " " + row.key + " " + row.value.substr(0, 100));
    settings_.addr_family = row.family;
    StartWithCache(row.key, row.value);
    EXPECT_EQ(std::to_string(service()->GetLinkCount()) + " " + NextLink(), row.links);
    EXPECT_FALSE(Cache().contains("of no use"));
  }
}

#ifndef __SANITIZE_ADDRESS__  // UBSan's check of virtual calls opens a pipe.
TEST_F(LBSCacheTest, LeavesAnUnreadableCacheToTheNextStart) {
  StartWithCache("name", "of the cache");
  static rlimit descriptors{};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  environment_settings_.custom_log = [](const char* line) {
    if (std::strstr(line, "]ParseLBSResponse rsp")) setrlimit(RLIMIT_NOFILE, &descriptors);
  };
  Restart();
  const rlimit none{0, descriptors.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_TRUE(service()->Init(settings_));
  EXPECT_THAT(Response(true), testing::HasSubstr("generated locally"));
  EXPECT_EQ(Cache().at("lbs_rsp"), Answer("cached"));
}
#endif

// A second process writes the same file all the time.
TEST_F(LBSCacheTest, KeepsItsOwnAnswerWhateverOthersWrite) {
  nlohmann::json others = cache_;
  others["root_lbs_addr"] = "https://others";
  const auto write = [text = others.dump(), path = CachePath()] {
    EXPECT_TRUE(zo_base::ReplaceWholeFile(path, text));
    EXPECT_NE(ReadFile(path), "{}");
  };
  std::jthread other_process([write](const std::stop_token& stop) {
    while (!stop.stop_requested()) write();
  });
  Serve({Answer("fresh")});
  for (int start = 0; start < 50; ++start) {
    Init();
    EXPECT_EQ(NextLink(), "192.0.2.9 9 1");
    EXPECT_EQ(Update(), "200 " + Answer("fresh"));
    object()->ReleaseLBSService();
    write();
  }
}

#ifndef __SANITIZE_THREAD__  // TSan supports no threads in a child of a process with threads.
TEST_F(LBSCacheTest, LeavesAWholeAnswerWheneverItIsKilled) {
  const std::string padding = R"("zebdl":")" + std::string(100'000, 'x') + R"(",)";  // Takes time.
  // By value: the last killed client's request may still arrive after the test.
  const auto answered = std::make_shared<std::atomic<int>>(0);
  server_->Answer(kPath, [this, padding, answered](auto&&) {
    return ServerAnswer{.body = Answer(std::to_string(++*answered), padding)};
  });
  // Shared with the clients: the number of the last answer that one was told of.
  static auto& told = *static_cast<std::atomic<int>*>(mmap(nullptr, sizeof(std::atomic<int>),
                                                           PROT_READ | PROT_WRITE,
                                                           MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::mt19937 random(1);
  for (int i = 0; i < 100; ++i) {
    environment_.reset();
    told = 0;
    const pid_t client = fork();
    if (client == 0) {  // It forces an update whenever it is told of an answer.
      alarm(60);
      Restart();
      Init();
      const auto tell = [](std::int32_t code, const char* response, void* user) {
        const std::string_view text = response;
        if (code != 200) _exit(1);
        told = std::atoi(&text[text.rfind("name") + 7]);  // It ends in `"name":"1"}}`.
        static_cast<IZOTarvelLBSService*>(user)->Update(kEMAddressFamilyAny, true);
      };
      service()->SetLBSCallback(tell, service());
      service()->Update(kEMAddressFamilyAny, true);
      while (true) pause();
    }
    int status = 0;
    while (told == 0 && waitpid(client, &status, WNOHANG) == 0) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
    kill(client, SIGKILL);
    waitpid(client, &status, 0);
    EXPECT_EQ(status, SIGKILL);

    Restart();
    const std::string name = Cache().at("name");
    EXPECT_GE(std::stoi(name), told);
    EXPECT_EQ(Cache().at("lbs_rsp"), Answer(name, padding));
    Init();
    EXPECT_EQ(Name(), name);
  }
}
#endif

}  // namespace
}  // namespace zo_tarvel
