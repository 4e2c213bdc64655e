#include "business/tarvel_lbs/lbs_request.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zo_tarvel {
namespace {

using Texts = std::vector<std::string>;

TEST(LBSRequestTest, WritesItsQueryInAFixedOrder) {
  EXPECT_EQ((LBSQuery{"", "", 1, -2, 3, 0}).ToText(), "sv=1&pv=-2&tp=3&networkType=2");
  EXPECT_EQ((LBSQuery{"a b-c", "", 0, 0, 0, 1}).ToText(),
            "k=a%20b%2Dc&sv=0&pv=0&tp=0&networkType=0");
  EXPECT_EQ((LBSQuery{"", "&=", 0, 0, 0, 2}).ToText(), "id=%26%3D&sv=0&pv=0&tp=0&networkType=1");
  EXPECT_EQ((LBSQuery{"k", "\xc3\xa4", 2147483647, 0, 0, 2}).ToText(),
            "k=k&id=%C3%A4&sv=2147483647&pv=0&tp=0&networkType=1");
}

struct EntryCase {
  Texts urls;
  std::int32_t family;
  bool only_https;
  Texts entries;  // "<host> <url>".
};

TEST(LBSRequestTest, AsksTheUrlsThatFitTheFamilyAndTheScheme) {
  const Texts literals{"https://1.2.3.4/4", "https://[::1]/6", "https://n/"};
  const std::string v4 = "def.host https://1.2.3.4/4?q", v6 = "def.host https://[::1]/6?q",
                    name = "n https://n/?q";
  for (const EntryCase& row : std::vector<EntryCase>{
           {{}, 0, false, {}},
           {{"http://a/p", "https://a:1/p?x=y", "http://a?"},
            0,
            false,
            {"a http://a/p?q", "a https://a:1/p?x=y&q", "a http://a?&q"}},
           {{"ftp://a/", "a/p", "", "a:80", "HTTP://a/"}, 0, false, {"a HTTP://a/?q"}},
           {literals, 0, false, {v4, v6, name}},
           {literals, 1, false, {v4, name}},
           {literals, 2, false, {v6, name}},
           // The first URL alone names the host of literals, whether it is asked or not.
           {{"http://a:8080/", "http://1.2.3.4:1/"},
            0,
            false,
            {"a http://a:8080/?q", "a http://1.2.3.4:1/?q"}},
           {{"http://a:80/", "https://1.2.3.4/"}, 0, true, {"a https://1.2.3.4/?q"}},
           {{"http://1.2.3.4/", "http://b/"},
            1,
            false,
            {"def.host http://1.2.3.4/?q", "b http://b/?q"}},
           {{"ftp://a/", "http://1.2.3.4/"}, 0, false, {"def.host http://1.2.3.4/?q"}},
           // Over https only: what has a port of its own would speak another protocol there.
           {{"http://a/p", "http://a:80/p", "https://a:80/p"},
            0,
            true,
            {"a https://a/p?q", "a https://a:80/p?q"}},
           {{"HTTPS://a/p", "HTTP://a/p", "http://a/?u=http://b/"},
            0,
            true,
            {"a HTTPS://a/p?q", "a https://a/?u=https://b/&q"}},
           {{"http://[::1]/", "http://[::1]:1/"}, 0, true, {"def.host https://[::1]/?q"}}}) {
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
