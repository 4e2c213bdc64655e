#include "business/tarvel_lbs/lbs_response.h"

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "base/json11.h"
#include "business/tarvel_lbs/lbs_answer.h"
#include "tests/support/temp_directory.h"

namespace zo_tarvel {
namespace {

using testing::HasSubstr;
using zo_base::json11::Json;
using Members = std::map<std::string, std::string>;

constexpr char kAnswer[] =
    R"({"common": {"link": ["a:1"], "link.default": ["b:2"], "lbs": "https://run"}})";
constexpr char kLocalAnswer[] =
    R"({"common": {"desc": "generated locally", "lbs": "https://main", "lbs.backup": ["https://b"], )"
    R"("link": ["l:1"], "link.default": ["d:4"], "msg.stat.enable": false, "ttl": 0, )"
    R"("zeb": ["http://192.0.2.80", "http://198.51.100.80"], )"
    R"("zebdl": "http://storage.tarvel.invalid", "zebdls": ["http://storage.tarvel.invalid"]}})";

LBSSettings SettingsFor(std::int32_t family) {
  LBSSettings settings;
  settings.lbs_main_addr = "https://main";
  settings.lbs_backup_addrs = {"https://b"};
  settings.default_link = "d:4";
  settings.default_link_ipv6 = "d:6";
  settings.link_list = {"l:1"};
  settings.addr_family = family;
  return settings;
}

// A good cache file, with some members replaced; those of an empty text are left out.
std::string FileWith(const Members& replaced) {
  Members members{{"lbs_rsp", kAnswer},
                  {"root_lbs_addr", "https://main"},
                  {"runntime_lbs", "https://run"},
                  {"lbs_ip_version", "1"},
                  {"expire_time", "1"}};
  for (const auto& [key, value] : replaced) members[key] = value;
  std::erase_if(members, [](const auto& member) { return member.second.empty(); });
  return Json(Json::object(members.begin(), members.end())).dump();
}

class LBSResponseTest : public ::testing::Test {
 protected:
  LBSResponseTest() {
    _ZOTarvelEnvironmentSettings settings;
    std::strcpy(settings.appdata_path, directory_.path().c_str());
    config_->Load(settings);
    file_ = config_->appdata_path() + "lbs/lbs.data";
    response_.SetEnvironmentConfig(config_);
  }

  const test_support::TempDirectory directory_;
  const std::shared_ptr<_EnvironmentConfig> config_ = std::make_shared<_EnvironmentConfig>();
  std::string file_;
  LBSResponse response_;
};

TEST_F(LBSResponseTest, MakesAndKeepsALocalAnswerWhenThereIsNoDirectory) {
  EXPECT_TRUE(response_.Init(SettingsFor(kEMAddressFamilyIPv4)));
  EXPECT_EQ(response_.store.Get(lbs_key::kRsp), kLocalAnswer);
  std::string escaped;
  for (const char c : std::string(kLocalAnswer)) escaped += c == '"' ? "\\\"" : std::string(1, c);
  EXPECT_EQ(test_support::ReadFile(file_), R"({"lbs_ip_version":"1","lbs_rsp":")" + escaped +
                                               R"(","root_lbs_addr":"https://main",)"
                                               R"("runntime_lbs":"https://main"})");
}

TEST_F(LBSResponseTest, MakesALocalAnswerInMemoryWhenNothingCanBeSaved) {
  std::filesystem::create_directories(file_);  // A directory has the place of the file.
  LBSResponse has_no_environment;
  for (LBSResponse* const response : {&response_, &has_no_environment}) {
    EXPECT_TRUE(response->Init(SettingsFor(kEMAddressFamilyIPv6)));
    EXPECT_THAT(response->store.Get(lbs_key::kRsp), HasSubstr(R"("link.default": ["d:6"])"));
    EXPECT_EQ(response->store.Get(lbs_key::kIPVersion), "2");
    EXPECT_TRUE(std::filesystem::is_empty(file_));
  }
}

TEST_F(LBSResponseTest, UsesACacheThatFitsItsSettings) {
  std::filesystem::create_directories(config_->appdata_path() + "lbs");
  const struct {
    std::int32_t family;  // Of the settings.
    bool used;
    std::string file;
  } rows[] = {
      {1, true, FileWith({})},  // Its time is over.
      {1, true, FileWith({{"expire_time", ""}})},
      {1, false, FileWith({{"lbs_rsp", ""}})},
      {1, false, FileWith({{"root_lbs_addr", ""}})},
      {1, false, FileWith({{"runntime_lbs", ""}})},
      {1, false, FileWith({{"root_lbs_addr", "https://other"}})},
      {2, false, FileWith({})},
      {1, false, FileWith({{"lbs_ip_version", "2"}})},
      {0, true, FileWith({{"lbs_ip_version", "2"}})},
      {2, true, FileWith({{"lbs_ip_version", "0"}})},
      {1, true, FileWith({{"lbs_ip_version", ""}})},
      {2, false, FileWith({{"lbs_ip_version", ""}})},
      {1, false, FileWith({{"lbs_rsp", R"({"common": {"link": ["a:1"]}})"}})},
      {1, false, FileWith({{"lbs_rsp", std::string(100'000, '[')}})},
      {1, false, FileWith({{"lbs_rsp", kAnswer + std::string(kLBSTextBufferSize, ' ')}})},
      {1, false, ""},
      {1, false, FileWith({}).substr(0, 100)},
      {1, false, R"({"lbs_rsp": ["a"]})"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.family) + " " + row.file.substr(0, 200));
    test_support::WriteFile(file_, row.file);
    LBSResponse response;
    response.SetEnvironmentConfig(config_);
    EXPECT_TRUE(response.Init(SettingsFor(row.family)));
    const std::string rsp = response.store.Get(lbs_key::kRsp);
    EXPECT_EQ(rsp == kAnswer, row.used);
    EXPECT_EQ(ReadLBSAnswer(rsp)->desc == kGeneratedLocally, !row.used);
    EXPECT_EQ(test_support::ReadFile(file_) == row.file, row.used);
  }
}

}  // namespace
}  // namespace zo_tarvel
