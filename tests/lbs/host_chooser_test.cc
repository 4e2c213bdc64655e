#include "business/tarvel_lbs/host_chooser/host_chooser.h"

#include <gtest/gtest.h>

#include <string>

#include "network/text.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::Split;

// What `chooser` answers to questions of these families, each a digit; a "*" marks a default.
std::string Asked(HostChooser& chooser, const std::string& families) {
  std::string answers;
  for (const char family : families) {
    std::string host = "untouched";
    const bool is_default = chooser.GetHost(family - '0', host);
    answers += (answers.empty() ? "" : " ") + std::string(is_default ? "*" : "") + host;
  }
  return answers;
}

TEST(HostChooserTest, HandsOutItsListThenADefaultThenItsListAnew) {
  constexpr char kMixed[] = "1.2.3.4:1 [2001:db8::1]:2 name:3";
  const struct {
    const char* hosts;
    const char* families;
    const char* answers;
    const char* defaults = "d4:4 d6:6";
  } rows[] = {
      {"a:1 b:2", "0000", "a:1 b:2 *d4:4 a:1"},
      {kMixed, "2222", "[2001:db8::1]:2 name:3 *d6:6 [2001:db8::1]:2"},
      {kMixed, "1111", "1.2.3.4:1 name:3 *d4:4 1.2.3.4:1"},
      {kMixed, "03030", "1.2.3.4:1 [2001:db8::1]:2 name:3 *d4:4 1.2.3.4:1"},
      {kMixed, "211", "[2001:db8::1]:2 name:3 *d4:4"},  // One index for all families.
      {"1.2.3.4:1 127.1:2", "221", "*d6:6 *d6:6 1.2.3.4:1"},
      {"1.2.3.4 [ :80", "222", "[ :80 *d6:6"},
      {"", "1201", "*d4:4 *d6:6 *d4:4 *d4:4"},
      // A default that is a name suits any family.
      {"", "031", "*n:80 *n:80 *1.2.3.4:80", "1.2.3.4:80 n:80"},
      {"", "02", "*n:80 *[::1]:80", "n:80 [::1]:80"},
      {"", "0", "*1.2.3.4:80", "1.2.3.4:80 [::1]:80"},
  };
  for (const auto& row : rows) {
    const auto defaults = Split(row.defaults, " ");
    HostChooser chooser(defaults[0], defaults[1], 1);
    chooser.ResetHosts(Split(row.hosts, " "));
    EXPECT_EQ(Asked(chooser, row.families), row.answers)
        << row.hosts << " | " << row.defaults << " asked for " << row.families;
  }
}

TEST(HostChooserTest, TakesADefaultForOneFamilyOrForBoth) {
  const char* const expected[] = {"*x:1 *x:1", "*x:1 *d6:6", "*d4:4 *x:1", "*d4:4 *d6:6"};
  for (const std::int32_t family : {0, 1, 2, 3}) {
    HostChooser chooser("d4:4", "d6:6", -1);
    chooser.SetDefaultHost(family, "x:1");
    EXPECT_EQ(Asked(chooser, "12"), expected[family]) << "set for family " << family;
  }
}

}  // namespace
}  // namespace zo_tarvel
