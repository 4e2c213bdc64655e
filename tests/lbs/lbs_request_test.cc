#include "business/tarvel_lbs/lbs_request.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;

TEST(LBSRequestTest, AsksTheUrlsThatFitTheFamilyAndTheScheme) {
  const Texts literals{"https://1.2.3.4/4", "https://[::1]/6", "https://n/"};
  const std::string v4 = "def.host https://1.2.3.4/4?q", v6 = "def.host https://[::1]/6?q",
                    name = "n https://n/?q";
  const struct {
    Texts urls;
    std::int32_t family;
    bool only_https;
    Texts entries;  // "<host> <url>".
  } rows[] = {
      {{}, 0, false, {}},
      {{"http://a/p", "https://a:1/p?x=y"}, 0, false, {"a http://a/p?q", "a https://a:1/p?x=y&q"}},
      {{"ftp://a/", "a/p", "", "a:80", "HTTP://a/"}, 0, false, {"a HTTP://a/?q"}},
      {literals, 0, false, {v4, v6, name}},
      {literals, 1, false, {v4, name}},
      {literals, 2, false, {v6, name}},
      // The first URL alone names the host of literals, whether it is asked or not.
      {{"http://a:80/", "https://1.2.3.4/"}, 0, true, {"a https://1.2.3.4/?q"}},
      {{"http://1.2.3.4/", "http://b/"}, 1, false, {"def.host http://1.2.3.4/?q", "b http://b/?q"}},
      {{"ftp://a/", "http://1.2.3.4/"}, 0, false, {"def.host http://1.2.3.4/?q"}},
      // Over https only: what has a port of its own would speak another protocol there.
      {{"http://a/p", "http://a:80/p", "https://a:80/p", "http://[::1]:1/"},
       0,
       true,
       {"a https://a/p?q", "a https://a:80/p?q"}},
      {{"HTTPS://a/p", "HTTP://a/p", "http://a/?u=http://b/"},
       0,
       true,
       {"a HTTPS://a/p?q", "a https://a/?u=https://b/&q"}},
  };
  for (const auto& row : rows) {
    Texts entries;
    for (const UrlEntry& entry :
         MakeLBSUrlEntries({row.urls, "def.host", row.family, row.only_https}, "q")) {
      entries.push_back(entry.host + " " + entry.url);
    }
    EXPECT_EQ(entries, row.entries) << testing::PrintToString(row.urls);
  }
}

}  // namespace
}  // namespace zo_tarvel
