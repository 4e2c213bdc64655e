#include "business/tarvel_lbs/host_chooser/host_chooser.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "network/text.h"
#include "tests/lbs/captured_log.h"

namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;
using test_support::RecordedLog;
using WQBASE::network::Split;

// What `chooser` answers to one question; a "*" marks a default.
std::string Asked(HostChooser& chooser, std::int32_t family) {
  std::string host = "untouched";
  return chooser.GetHost(family, host) ? "*" + host : host;
}

struct RotationCase {
  const char* hosts;
  std::vector<std::int32_t> families;  // One for each question.
  const char* answers;
  const char* defaults = "d4:4 d6:6";
};

TEST(HostChooserTest, HandsOutItsListThenADefaultThenItsListAnew) {
  constexpr char kMixed[] = "1.2.3.4:1 [2001:db8::1]:2 name:3";
  for (const RotationCase& row : std::vector<RotationCase>{
           {"a:1 b:2", {0, 0, 0, 0}, "a:1 b:2 *d4:4 a:1"},
           {kMixed, {2, 2, 2, 2}, "[2001:db8::1]:2 name:3 *d6:6 [2001:db8::1]:2"},
           {kMixed, {1, 1, 1, 1}, "1.2.3.4:1 name:3 *d4:4 1.2.3.4:1"},
           {kMixed, {0, 3, -1, 3, 0}, "1.2.3.4:1 [2001:db8::1]:2 name:3 *d4:4 1.2.3.4:1"},
           {kMixed, {2, 1, 1}, "[2001:db8::1]:2 name:3 *d4:4"},  // One index for all families.
           {"a:1 1.2.3.4:2", {2, 2, 2}, "a:1 *d6:6 a:1"},
           {"1.2.3.4:1 127.1:2", {2, 2, 1}, "*d6:6 *d6:6 1.2.3.4:1"},
           {"1.2.3.4 [ :80", {2, 2, 2}, "[ :80 *d6:6"},
           {"", {1, 2, 0, 1}, "*d4:4 *d6:6 *d4:4 *d4:4"},
           // A default that is a name suits any family.
           {"", {0, 3, 1}, "*n:80 *n:80 *1.2.3.4:80", "1.2.3.4:80 n:80"},
           {"", {0, 2}, "*n:80 *[::1]:80", "n:80 [::1]:80"},
           {"", {0}, "*n:80", "n:80 m:80"},
           {"", {0}, "*1.2.3.4:80", "1.2.3.4:80 [::1]:80"}}) {
    const Texts defaults = Split(row.defaults, " ");
    HostChooser chooser(defaults[0], defaults[1], 1);
    chooser.ResetHosts(Split(row.hosts, " "));
    Texts answers;
    for (const auto family : row.families) answers.push_back(Asked(chooser, family));
    EXPECT_EQ(answers, Split(row.answers, " ")) << row.hosts << " | " << row.defaults;
  }
}

TEST(HostChooserTest, TakesADefaultForOneFamilyOrForBoth) {
  const Texts expected[] = {
      {"*x:1", "*x:1"}, {"*x:1", "*d6:6"}, {"*d4:4", "*x:1"}, {"*d4:4", "*d6:6"}};
  for (const std::int32_t family : {0, 1, 2, 3}) {
    HostChooser chooser("d4:4", "d6:6", -1);
    chooser.SetDefaultHost(family, "x:1");
    EXPECT_EQ((Texts{Asked(chooser, 1), Asked(chooser, 2)}), expected[family]) << family;
  }
}

TEST(HostChooserTest, ShowsTheNextHostWithoutMovingOn) {
  HostChooser chooser("d4:4", "d6:6", -1);
  EXPECT_EQ(chooser.GetCurrentHost(), "");
  chooser.ResetHosts({"1.2.3.4:1"});
  chooser.OnHostConnectSucceed("1.2.3.4", 1);
  for (const char* answer : {"1.2.3.4:1", "*d4:4"}) {
    EXPECT_EQ(chooser.GetCurrentHost(), answer[0] == '*' ? "" : answer);
    EXPECT_EQ(Asked(chooser, 1), answer);
  }
  EXPECT_EQ(chooser.GetCurrentHost(), "1.2.3.4:1");
}

TEST(HostChooserTest, LogsAListUnlessItIsLongAndBeginsAnewWithIt) {
  const test_support::CapturedLog log;
  HostChooser chooser("d4:4", "d6:6", -1);
  chooser.ResetHosts({"a:1", "b:2"});
  EXPECT_EQ(Asked(chooser, 0), "a:1");
  chooser.ResetHosts({"c:3"});
  EXPECT_EQ(chooser.GetHostCount(), 1);
  EXPECT_EQ(Asked(chooser, 0), "c:3");
  const std::string ab = "\r\na:1\r\nb:2\r\n----------------------------------";
  const std::string c = "\r\nc:3\r\n----------------------------------";
  EXPECT_EQ(RecordedLog::Texts(), (Texts{"Reset Hosts size:2 current index :0" + ab,
                                         "GetHost Hosts size:2 current index :0" + ab,
                                         "Reset Hosts size:1 current index :0" + c,
                                         "GetHost Hosts size:1 current index :0" + c}));
  chooser.ResetHosts(Texts(100'000, "name:1"));
  EXPECT_LT(RecordedLog::Texts().back().size(), 10'000u);
}

TEST(HostChooserTest, GivesEachThreadAnotherHost) {
  HostChooser chooser("d4:4", "d6:6", -1);
  Texts hosts;
  for (int i = 0; i < 400; ++i) hosts.push_back("name:" + std::to_string(i));
  chooser.ResetHosts(hosts);
  Texts answers(hosts.size());
  std::vector<std::thread> threads;
  for (std::size_t begin = 0; begin < hosts.size(); begin += 100) {
    threads.emplace_back([&, begin] {
      for (std::size_t i = 0; i < 100; ++i) answers[begin + i] = Asked(chooser, 1);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set(answers.begin(), answers.end()), std::set(hosts.begin(), hosts.end()));
}

}  // namespace
}  // namespace zo_tarvel
