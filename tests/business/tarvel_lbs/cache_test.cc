#include <sys/resource.h>

#include <filesystem>
#include <thread>

#include "base/file/whole_file.h"
#include "business/tarvel_lbs/tarvel_lbs_service.h"
#include "tarvel/environment/lbs_service_factory.h"
#include "tests/support/lbs_client.h"

// The life time of answers, timed by the test's own clock, and their cache.
namespace zo_tarvel {
namespace {

using namespace test_support;

constexpr std::int64_t kNow = 1'700'000'000'000;
constexpr std::int64_t kDay = 86'400'000;
std::atomic<std::int64_t> wall_clock{kNow};

class LBSCacheTest : public LBSServiceTest {
 protected:
  LBSCacheTest() {
    SetLBSServiceFactory([]() -> std::shared_ptr<IZOTarvelLBSService> {
      return std::make_shared<ZOTarvelLBSServiceImpl>([] { return wall_clock.load(); });
    });
  }
  ~LBSCacheTest() override {
    environment_.reset();
    SetLBSServiceFactory(real_);
  }

  // Starts with a token and a cached answer. In the file, `key` has this value; an empty one
  // removes the key.
  void StartWithCache(const std::string& key, const std::string& value) {
    Restart();
    std::filesystem::create_directories(std::filesystem::path(CachePath()).parent_path());
    nlohmann::json cache = {{"lbs_rsp", Answer("cached")},
                            {"root_lbs_addr", url_},
                            {"runntime_lbs", url_},
                            {"lbs_ip_version", "1"}};
    cache[key] = value;
    if (value.empty()) cache.erase(key);
    WriteFile(CachePath(), cache.dump());
    object()->SetBusinessToken("t");
    Init();
  }
  static std::string UpdateAfter(std::int64_t ms) {
    return "[lbs][lbs cache] update lbs after " + std::to_string(ms) + " ms";
  }

 private:
  const LBSServiceFactory real_ = GetLBSServiceFactory();
};

TEST_F(LBSCacheTest, TimesTheNextUpdateByTheTtl) {
  const struct {
    const char* ttl;
    std::int64_t clock;
    std::int64_t expire_time;
    std::int64_t update_after;
  } rows[] = {
      {R"("ttl":10,)", kNow, kNow + 10'000, 10'000},
      {R"("ttl":999999999,)", kNow, kNow + 999'999'999'000, 18'000'000},
      {"", kNow, kNow + kDay / 2, 18'000'000},
      {R"("ttl":-1,)", kNow, kNow + kDay / 2, 18'000'000},     // Keeps the time of expiry.
      {R"("desc":"generated locally",)", kNow, kNow, 60'000},  // Has expired when it arrives.
      // The clock has jumped.
      {R"("ttl":3600,)", kNow - 700 * kDay, kNow - 700 * kDay + 3'600'000, 3'600'000},
      {R"("ttl":3600,)", kNow + 366 * kDay, kNow + 366 * kDay + 3'600'000, 3'600'000},
  };
  Init();
  std::size_t requests = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ttl + std::string(" at ") + std::to_string(row.clock));
    wall_clock = row.clock;
    RunAllPosted();
    Serve({Answer("fresh", row.ttl)});
    RecordedLog::Clear();
    Update();
    EXPECT_EQ(Cached("expire_time"), std::to_string(row.expire_time));
    EXPECT_TRUE(RecordedLog::Await(UpdateAfter(row.update_after)));
    EXPECT_EQ(server_->requests().size(), ++requests);
  }
}

TEST_F(LBSCacheTest, AsksInTimeWhateverFileAndClockSay) {
  const struct {
    std::string expire_time;
    std::int64_t clock;
    std::int64_t update_after;
  } rows[] = {
      {std::to_string(kNow + 3'600'000), kNow, 3'600'000},
      {std::to_string(kNow), kNow, 20},
      {std::to_string(kNow + kDay / 2), kNow - kDay, 18'000'000},
      {std::to_string(kNow + kDay / 2), kNow + 365 * kDay, 20},
      {"99999999999999999999", kNow, 20},
      {"9223372036854775807", kNow, 18'000'000},
      {"9223372036854775807", -kDay, 18'000'000},
      {"-9223372036854775808", kNow, 20},
      {"", kNow, 18'000'000},  // Its life time begins now.
  };
  Serve({Answer("fresh")});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expire_time + " at " + std::to_string(row.clock));
    wall_clock = row.clock;
    StartWithCache("expire_time", row.expire_time);
    EXPECT_EQ(RecordedLog::Texts("[lbs][lbs cache]").at(0), UpdateAfter(row.update_after));
    EXPECT_EQ(NextLink(), "192.0.2.1 81 1");
    if (row.update_after > 20) continue;
    EXPECT_EQ(TakeTold(), "200 " + Answer("fresh"));
    EXPECT_EQ(Cached("expire_time"), std::to_string(row.clock + kDay / 2));
    const std::int64_t called = RecordedLog::Records("[lbs]Call Update force = false").at(0).at;
    EXPECT_GE(RecordedLog::Records("[lbs]UpdateLBS force = false").at(0).at - called, 1'200);
  }
}

TEST_F(LBSCacheTest, StartsFromACacheThatFitsItsSettings) {
  const struct {
    std::uint32_t family;  // Of the settings.
    const char* name;      // Of the answer; the local one has none.
    const char* key;
    std::string value;
  } rows[] = {
      {1, "", "lbs_rsp", ""},
      {1, "", "root_lbs_addr", ""},
      {1, "", "runntime_lbs", ""},
      {1, "", "root_lbs_addr", "https://other"},
      {1, "", "lbs_ip_version", "2"},
      {0, "cached", "lbs_ip_version", "2"},
      {2, "cached", "lbs_ip_version", "0"},
      {1, "cached", "lbs_ip_version", ""},
      {2, "", "lbs_ip_version", ""},
      {1, "", "lbs_rsp", R"({"common": {"link": ["a:1"], "name": "no good"}})"},
      {1, "", "lbs_rsp", std::string(100'000, '[')},
      {1, "", "lbs_rsp", Answer("long") + std::string(kLBSTextBufferSize, ' ')},
      {1, "cached", "of no use", "x"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.family) + " " + row.key + " " + row.value.substr(0, 100));
    settings_.addr_family = row.family;
    StartWithCache(row.key, row.value);
    EXPECT_EQ(TextFrom(&IZOTarvelLBSService::GetName), row.name);
    EXPECT_EQ(TextFrom(&IZOTarvelLBSService::GetDesc) == kGeneratedLocally, *row.name == '\0');
    EXPECT_FALSE(nlohmann::json::parse(ReadFile(CachePath())).contains("of no use"));
  }
}

TEST_F(LBSCacheTest, StartsFromItsOwnAnswerWithoutACacheFile) {
  const struct {
    std::uint32_t family;  // Of the settings, as the next two.
    const char* link;
    const char* link_ipv6;
    std::string links;  // Of the answer.
    std::string default_link;
  } rows[] = {{1, "l:1", "s:2", R"("l:1")", "l:1"},
              {2, "l:1", "s:2", R"("s:2")", "s:2"},
              {0, "l:1", "s:2", R"("l:1", "s:2")", "l:1"},
              {2, "l:1", "", R"("l:1")", "l:1"},
              {0xffffffff, "l:1", "s:2", R"("l:1")", "l:1"},
              {1, "", "s:2", '"' + std::string(kDefaultLink) + '"', kDefaultLink}};
  std::filesystem::create_directories(CachePath());  // A directory is in the file's place.
  SetUrls({"https://main", "https://b"});
  for (const auto& row : rows) {
    Restart();
    settings_.addr_family = row.family;
    std::strcpy(settings_.default_link, row.link);
    std::strcpy(settings_.default_link_ipv6, row.link_ipv6);
    Init();
    EXPECT_EQ(Response(), R"({"common": {"desc": "generated locally", "lbs": "https://main", )"
                          R"("lbs.backup": ["https://b"], "link": [)" +
                              row.links + R"(], "link.default": [")" + row.default_link +
                              R"("], "msg.stat.enable": false, "ttl": 0, )"
                              R"("zeb": ["http://192.0.2.80", "http://198.51.100.80"], )"
                              R"("zebdl": "http://storage.tarvel.invalid", )"
                              R"("zebdls": ["http://storage.tarvel.invalid"]}})")
        << row.family;
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
  EXPECT_EQ(Cached("lbs_rsp"), Answer("cached"));
}
#endif

// A second process writes and empties the same file all the time.
TEST_F(LBSCacheTest, KeepsItsOwnAnswerWhateverOthersWrite) {
  Restart();
  const std::string path = CachePath();
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  const std::string others = nlohmann::json({{"lbs_rsp", Answer("others")},
                                             {"root_lbs_addr", "https://others"},
                                             {"runntime_lbs", "https://others"}})
                                 .dump();
  std::jthread other_process([&](const std::stop_token& stop) {
    for (bool writes = true; !stop.stop_requested(); writes = !writes) {
      if (writes) {
        EXPECT_TRUE(zo_base::ReplaceWholeFile(path, others));
      }
      EXPECT_NE(ReadFile(path), "{}");
    }
  });
  Serve({Answer("fresh")});
  for (int start = 0; start < 50; ++start) {
    Init();
    EXPECT_EQ(NextLink(), "192.0.2.9 9 1");
    EXPECT_EQ(Update(), "200 " + Answer("fresh"));
    object()->ReleaseLBSService();
    EXPECT_TRUE(zo_base::ReplaceWholeFile(path, others));
  }
}

}  // namespace
}  // namespace zo_tarvel
