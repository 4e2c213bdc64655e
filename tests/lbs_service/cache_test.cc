#include <atomic>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "business/tarvel_lbs/tarvel_lbs_service.h"
#include "tarvel/environment/lbs_service_factory.h"
#include "tests/lbs_service/lbs_client.h"

// The life time of answers, by a clock of the test's own, and across starts.
namespace zo_tarvel {
namespace {

using namespace test_support;

constexpr std::int64_t kNow = 1'700'000'000'000;
constexpr std::int64_t kDay = 86'400'000;
std::atomic<std::int64_t> wall_clock{kNow};

class LBSCacheTest : public LBSServiceTest {
 protected:
  LBSCacheTest() {
    wall_clock = kNow;
    SetLBSServiceFactory([]() -> std::shared_ptr<IZOTarvelLBSService> {
      return std::make_shared<ZOTarvelLBSServiceImpl>([] { return wall_clock.load(); });
    });
  }
  ~LBSCacheTest() override {
    environment_.reset();
    SetLBSServiceFactory(real_);
  }

  // Has the cache file of an answer that ends at `expire_time`.
  void WriteCache(const std::string& expire_time) {
    const std::string url = settings_.lbs_main_addr;
    const nlohmann::json cache = {{"lbs_rsp", Answer("cached")},
                                  {"root_lbs_addr", url},
                                  {"runntime_lbs", url},
                                  {"lbs_ip_version", "1"},
                                  {"expire_time", expire_time}};
    std::filesystem::create_directories(std::filesystem::path(CachePath()).parent_path());
    WriteFile(CachePath(), cache.dump());
  }
  static std::string UpdateAfter(std::int64_t ms) {
    return "[lbs][lbs cache] update lbs after " + std::to_string(ms) + " ms";
  }

 private:
  const LBSServiceFactory real_ = GetLBSServiceFactory();
};

TEST_F(LBSCacheTest, TimesTheNextUpdateByTheTtlButNotForMoreThanFiveHours) {
  const struct {
    const char* ttl;
    std::int64_t lives;
    std::int64_t update_after;
  } rows[] = {
      {R"("ttl":10,)", 10'000, 10'000},
      {R"("ttl":18000,)", 18'000'000, 18'000'000},
      {R"("ttl":999999999,)", 999'999'999'000, 18'000'000},
      {"", 43'200'000, 18'000'000},
      {R"("ttl":0,)", 43'200'000, 18'000'000},
      {R"("ttl":"10",)", 43'200'000, 18'000'000},
      {R"("ttl":1000000000,)", 43'200'000, 18'000'000},  // Ten digits count as none.
      {R"("ttl":-1,)", 43'200'000, 18'000'000},          // As before.
      {R"("desc":"generated locally",)", 0, 60'000},     // Over when it comes.
  };
  Init();
  for (const auto& row : rows) {
    Serve({Answer("fresh", row.ttl)});
    RecordedLog::Clear();
    Update();
    EXPECT_EQ(Cached("expire_time"), std::to_string(kNow + row.lives)) << row.ttl;
    EXPECT_TRUE(RecordedLog::Await(UpdateAfter(row.update_after))) << row.ttl;
  }
}

TEST_F(LBSCacheTest, AsksInTimeAndNotAllTheTimeWhateverFileAndClockSay) {
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
      {"-1", kNow, 20},
      {"abc", kNow, 20},
      {"", kNow, 20},
  };
  Serve({"not good"});
  for (const auto& row : rows) {
    Restart();
    wall_clock = row.clock;
    WriteCache(row.expire_time);
    object()->SetBusinessToken("t");
    Init();
    EXPECT_EQ(RecordedLog::Texts("[lbs][lbs cache]").at(0), UpdateAfter(row.update_after))
        << row.expire_time << " at " << row.clock;
    EXPECT_EQ(Cached("expire_time"), row.expire_time);
    EXPECT_EQ(NextLink().host, "192.0.2.1");
  }
}

TEST_F(LBSCacheTest, AClockThatJumpsWhileItRunsStartsNothing) {
  Serve({Answer("fresh", R"("ttl":3600,)")});
  Init();
  Update();
  for (const std::int64_t jump : {-kDay, 366 * kDay, -700 * kDay}) {
    wall_clock += jump;
    RunAllPosted();
    RecordedLog::Clear();
    Update();
    EXPECT_TRUE(RecordedLog::Await(UpdateAfter(3'600'000)));
    EXPECT_EQ(Cached("expire_time"), std::to_string(wall_clock + 3'600'000));
  }
  EXPECT_EQ(server_->requests().size(), 4U);
}

TEST_F(LBSCacheTest, StartsFromItsCacheWhenNoServerCanBeReached) {
  const std::string cached = Answer("cached", R"("zebdl":"http://zeb.test",)");
  Serve({cached});
  Init();
  Update();
  server_.reset();
  const std::string expire_time = Cached("expire_time");
  wall_clock = kNow + kDay / 4;
  Restart();
  object()->SetBusinessToken("t");
  EXPECT_TRUE(service()->Init(settings_));
  EXPECT_EQ(NextLink(), (Link{"192.0.2.1", 81, kEMAddressFamilyIPv4}));
  EXPECT_EQ(TextOf(&IZOTarvelLBSService::GetZEBDL), "http://zeb.test");
  EXPECT_EQ(Cached("lbs_rsp"), cached);
  EXPECT_EQ(Cached("expire_time"), expire_time);
}

TEST_F(LBSCacheTest, RenewsACachedAnswerThatHasExpired) {
  WriteCache(std::to_string(kNow - 1));
  Serve({Answer("fresh")});
  object()->SetBusinessToken("t");
  Init();
  EXPECT_EQ(NextLink().host, "192.0.2.1");
  EXPECT_EQ(TextOf(&IZOTarvelLBSService::GetName), "cached");
  EXPECT_EQ(TakeTold().response, Answer("fresh"));
  EXPECT_EQ(Cached("expire_time"), std::to_string(kNow + kDay / 2));
}

}  // namespace
}  // namespace zo_tarvel
