#include "network/url/url.h"

#include <gtest/gtest.h>

#include "base/text/strings.h"
#include "network/url/ip_address.h"

namespace WQBASE::network {
namespace {

using namespace std::string_literals;

TEST(UrlTest, ReturnsThePartsOfAUrl) {
  const std::pair<std::string, std::string> cases[] = {
      // The scheme, the host, both with the port as written, and the port as a number.
      {"http://u:p@a.example:8443/", "http a.example a.example:8443 8443"},
      {"hTTpS://A.example?:1", "https A.example A.example 0"},
      {" https://u@[::1]:443/x:1?#", "https [::1] [::1]:443 443"},
      {"\0 http:\\/\\b\\c \n"s, "http b b 0"},
      {"http://u@:p:q@b::2", "http b: b::2 2"},
      {"http://[::1]x:1:2", "http [::1] [::1]:2 2"},
      {"http://[::1:80", "http [::1:80 [::1:80 0"},
      {"file:///a", " a a 0"},
      {"http://:80", "http  :80 80"},
      {"http://b: \t+80x9", "http b b: \t+80x9 80"},
      {"http://b:-99999999999", "http b b:-99999999999 " + std::to_string(INT32_MIN)},
  };
  for (const auto& [url, parts] : cases) {
    EXPECT_EQ(GetScheme(url) + " " + GetHost(url, false) + " " + GetHost(url, true) + " " +
                  std::to_string(GetPort(url)),
              parts);
  }
}

TEST(IPAddressTest, ReadsEveryFormOfAnAddressAndNothingElse) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"1.2.3.4", {"1.2.3.4", "1.2.3.4.", "1.2.772", "1.0x20304", "16909060.", "0x1.02.3.000004"}},
      {"127.0.0.10", {"0x7f.0.0.10", "127.10", "0177.012", "0X7F.0xA", "0x7f.0x.0x.0x0000000000a"}},
      {"255.255.255.255", {"255.255.255.255", "255.255.65535", "255.16777215", "4294967295"}},
      {"[::]", {"::", "[::]", "0:0:0:0:0:0:0:0", "::0.0"}},
      {"[1:22:333:4444:abcd::f]",
       {"1:22:333:4444:aBcD:0:00:000F", "[1:22:333:4444:abcd::f]", "1:22:333:4444:abcd:0:0.017"}},
      {"[0:2:3:4:5:6:7:8]", {"::2:3:4:5:6:7:8", "[::2:3:4:5:6:0.7.0.8.]"}},
      {"[1:2:3:0:5:6:7:8]", {"1:2:3::5:6:7:8"}},
      {"[::ffff:1.2.3.4]", {"::ffff:1.2.3.4", "::ffff:102:304"}},
  };
  for (const auto& [address, texts] : cases) {
    for (const std::string& text : texts) EXPECT_EQ(CanonicalHost(text), address) << text;
  }
  const std::string others[] = {
      // No IPv4.
      "", ".", "1..2", "1.2.3.4..", "1.2.3.4.5", "256.1", "1.16777216", "4294967296",
      "99999999999999999999", "08", "0x1g", "1.2.3.a", "-1", "+1", " 1.2.3.4", "1.2.3.4 ",
      "1.2.3.4\0"s, "1.2.3.4/8", "[1.2.3.4]", "00x1", "\xb2.1",
      // No IPv6.
      ":", ":::", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7::8", "::1:2:3:4:5:6:7:8",
      "1::2::3", "::1::", "1:::2", ":1::2", "1::2:", "::00001", "g::", "::-1", "::1%1", "[::1",
      "1::1]", "[[::1]]", "[]:", "[", "[::1]:80", " ::1", "::1\0"s, "1.2.3.4::", "::1.2.3.4:5",
      "1:2:3:4:5:6:7:1.2.3.4", "1:2:3:4:5:1.2.3.4", "::1.2.3.256", "::1.2.3.4.5"};
  for (const std::string& text : others) EXPECT_FALSE(IsIPAddress(text)) << text;
}

// A nested search would take minutes.
TEST(HostileTextTest, OfAMebibyteIsRead) {
  const std::string text(std::size_t{1} << 20, '9');
  for (const char* part : {":", "/", "\\", "@", ".", "[", "[]", "?", ":@", "1.", "::1", "0x"}) {
    const std::string parts = zo_base::ReplaceAll(text, "9", part);
    EXPECT_LE(GetHost(parts, true).size(), parts.size()) << part;
    EXPECT_FALSE(IsIPAddress(parts)) << part;
  }
  EXPECT_EQ(GetPort("a://b:" + text), INT32_MAX);
  EXPECT_EQ(zo_base::ReplaceAll(text, text.substr(1 << 19) + "b", ""), text);
}

}  // namespace
}  // namespace WQBASE::network
