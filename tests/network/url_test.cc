#include "network/url.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "network/ip_address.h"
#include "network/parsed_url.h"
#include "network/text.h"

namespace WQBASE::network {
namespace {

using namespace std::string_literals;

// Each component that is present with a letter before it. The text is parsed in a buffer of just
// its size, where the address sanitizer sees a read beyond it.
std::string Components(const std::string& url) {
  const std::vector<char> text(url.begin(), url.end());
  ParsedUrl parsed;
  ParseUrl(text.data(), static_cast<std::int32_t>(text.size()), &parsed);
  const std::pair<char, UrlComponent> all[] = {
      {'s', parsed.scheme}, {'u', parsed.username}, {'w', parsed.password}, {'h', parsed.host},
      {'p', parsed.port},   {'/', parsed.path},     {'?', parsed.query},    {'#', parsed.ref}};
  std::string shown;
  for (const auto& [letter, component] : all) {
    if (component.length == -1 && component.begin == 0) continue;
    shown.append(1, letter).append("(").append(component.In(url)).append(")");
  }
  return shown;
}

TEST(ParseUrlTest, SplitsATextIntoItsComponents) {
  const std::pair<std::string, std::string> cases[] = {
      {"hTTp://u:p@A.example:84/x/y?q=1#r", "s(hTTp)u(u)w(p)h(A.example)p(84)/(/x/y)?(q=1)#(r)"},
      {"\0 a:b/c \n\x1f"s, "s(a)h(b)/(/c)"},
      {"\xa0:a/\xff", "s(\xa0)h(a)/(/\xff)"},
      {"a: //b", "s(a)h( )/(//b)"},
      {" \n\0 "s, ""},
      {"", ""},
      {"/x?q", "h(x)?(q)"},
      {"a/b?c:d:e/f", "s(a/b?c)h(d)p(e)/(/f)"},
      {"::80", "s()p(80)"},
      {"a:\\/\\b\\c", "s(a)h(b)/(\\c)"},
      {"a:b#r/?@c:1", "s(a)h(b)#(r/?@c:1)"},
      {"a:b:/x", "s(a)h(b)/(/x)"},
      {"a:?#", "s(a)?()#()"},
      {"a:b/?y?z#v#w?", "s(a)h(b)/(/)?(y?z)#(v#w?)"},
      {"a:u@:p:q@b::2", "s(a)u(u@)w(p:q)h(b:)p(2)"},
      {"a::@", "s(a)u()w()"},
      {"a:u@[::1]:80/x", "s(a)u(u)h([::1])p(80)/(/x)"},
      {"a:[::1]:", "s(a)h([::1])"},
      {"a:[::1]x:1:2", "s(a)h([::1])p(2)"},
      {"a:[b]:1]:2", "s(a)h([b]:1])p(2)"},
      {"a:[::1:80", "s(a)h([::1:80)"}};
  for (const auto& [url, components] : cases) EXPECT_EQ(Components(url), components) << url;
}

TEST(ParseUrlTest, ForgetsTheFormerComponentsWhenThereIsNoText) {
  ParsedUrl parsed;
  ParseUrl(" a://@b?#", 9, &parsed);
  EXPECT_EQ(parsed.username.begin, 5);
  EXPECT_EQ(parsed.ref.begin, 9);
  ParsedUrl again = parsed;
  ParseUrl(nullptr, 9, &parsed);
  ParseUrl("a://b", -1, &again);
  EXPECT_FALSE(parsed.scheme.present() || parsed.ref.present());
  EXPECT_FALSE(again.scheme.present() || again.ref.present());
}

TEST(UrlTest, AnswersWhatIsAskedOfAUrl) {
  const struct {
    std::string url, scheme, host, host_and_port;
    std::int32_t port;
    bool https;
  } cases[] = {
      {"http://u:p@a.example:8443/", "http", "a.example", "a.example:8443", 8443, false},
      {"hTTpS://A.example?:1", "https", "A.example", "A.example", 0, true},
      {" https://[::1]:443", "https", "[::1]", "[::1]:443", 443, true},
      {"file:///a", "", "a", "a", 0, false},
      {"httpss://a:1", "", "a", "a:1", 1, false},
      {"http\0://a"s, "", "a", "a", 0, false},
      {"https", "", "https", "https", 0, false},
      {"http://:80", "http", "", ":80", 80, false},
  };
  for (const auto& [url, scheme, host, host_and_port, port, https] : cases) {
    EXPECT_EQ(GetScheme(url), scheme) << url;
    EXPECT_EQ(GetSchemePrefix(url), scheme.empty() ? "" : scheme + "://") << url;
    EXPECT_EQ(GetHost(url, false), host) << url;
    EXPECT_EQ(GetHost(url, true), host_and_port) << url;
    EXPECT_EQ(GetPort(url), port) << url;
    EXPECT_EQ(IsHttps(url), https) << url;
  }
  for (const char* scheme : {"ftp", "rtmp", "rtsp", "mailto"})
    EXPECT_EQ(GetScheme(scheme + ":"s), scheme);
}

TEST(UrlTest, ReadsTheNumberThatBeginsAPort) {
  const std::pair<std::string, std::int32_t> cases[] = {{" \t+80x9", 80},
                                                        {"-7", -7},
                                                        {"+-7", 0},
                                                        {"8\0001"s, 8},
                                                        {"2147483648", INT32_MAX},
                                                        {"-99999999999999999999", INT32_MIN}};
  for (const auto& [text, port] : cases) EXPECT_EQ(GetPort("a://b:" + text), port) << text;
}

TEST(UrlTest, AppendsTheHostAndSetsOnlyAPortThatIsPresent) {
  std::string host = "before ";
  std::int32_t port = 17;
  GetHostAndPort("http://a:/", host, port);
  EXPECT_EQ(port, 17);
  GetHostAndPort("http://[::2]:80", host, port);
  EXPECT_EQ(host, "before a[::2]");
  EXPECT_EQ(port, 80);
}

// A search inside of a search would take minutes.
TEST(UrlTest, ReadsHostileTextsOfAMebibyte) {
  const auto all = [](const std::string& part) {
    std::string text;
    while (text.size() < std::size_t{1} << 20) text += part;
    return text;
  };
  for (const char* part : {":", "/", "\\", " ", "@", ".", "[", "[]", "?", "#", ":@"}) {
    EXPECT_LE(Components(all(part)).size(), all(part).size() + 16) << part;
    EXPECT_FALSE(IsIPAddress(all(part))) << part;
  }
  EXPECT_EQ(GetPort("a://b:" + all("9")), INT32_MAX);
  for (const char* part : {"1.", "1:", "::1", "0x", "1.1.1.1:"}) {
    EXPECT_FALSE(IsIPAddress(all(part))) << part;
  }
  EXPECT_TRUE(IsIPAddress(all("0")));
  EXPECT_EQ(Split(all(":") + "a" + all(":"), all(":")), std::vector<std::string>{"a"});
  EXPECT_TRUE(ReplaceAll(all("a"), all("a").substr(1 << 19) + "b", "") == all("a"));
}

}  // namespace
}  // namespace WQBASE::network
