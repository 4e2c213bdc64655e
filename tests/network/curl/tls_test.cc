#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "base/text/strings.h"
#include "tests/support/child_process.h"
#include "tests/support/nginx_server.h"
#include "tests/support/transport.h"

// Transfers over TLS, with nginx on the other side.
namespace {

using namespace test_support;
using testing::HasSubstr;

CertificateAuthority& Authority() {
  static CertificateAuthority authority;
  return authority;
}

TEST(ConnectionTest, OfHttp2IsSharedAndReplacedUnseen) {
  for (const std::string closing : {"", "keepalive_requests 7; keepalive_timeout 1s;"}) {
    NginxServer nginx({.listeners = {{"127.0.0.1", Authority().Issue("a.example"), true}},
                       .server_text = closing});
    Transport transport;
    EXPECT_TRUE(transport.Fetch(nginx.url("/index"))->success);
    for (int round = 0; round < 5; ++round) {
      std::vector<std::future<ResponsePtr>> responses;
      for (int i = 0; i < 40; ++i) responses.push_back(transport.Start(Get(nginx.url("/index"))));
      for (auto& response : responses) EXPECT_EQ(response.get()->error_text, "");
    }
    const std::string log = nginx.AccessLog(201), first = log.substr(0, log.find('\n') + 1);
    EXPECT_THAT(first, HasSubstr("HTTP/2.0"));
    EXPECT_EQ(zo_base::ReplaceAll(log, first, "").empty(), closing.empty());  // One connection.
  }
}

// Returns a request for an IP literal whose server must be `host`.
std::shared_ptr<HttpRequest> Pinned(const std::string& url, const std::string& host = "a.example",
                                    const std::string& ip = "127.0.0.1", int port = 0) {
  auto request = Get(url);
  request->sni = true;
  request->host = host;
  request->ip = ip;
  request->port = port;
  return request;
}

// Over HTTP/1.1 on an IPv4 address, and over HTTP/2 on an IPv6 one.
class TlsTest : public testing::TestWithParam<bool> {
 protected:
  NginxServer Serve(const std::vector<std::string>& certificates, std::string text = "") const {
    NginxOptions options{.listeners = {}, .server_text = std::move(text)};
    for (const auto& own : certificates) options.listeners.push_back({address_, own, http2_});
    return NginxServer(options);
  }

  const bool http2_ = GetParam();
  const std::string address_ = http2_ ? "::1" : "127.0.0.1";
  const std::string of_name_ = Authority().Issue("a.example");
  const std::string of_ip_ = Authority().Issue(address_);
  Transport transport_{Authority().trust_store()};
};

TEST_P(TlsTest, ChecksTheNameBehindAnIPOnly) {
  CertificateAuthority stranger;
  const NginxServer nginx =
      Serve({of_name_, of_ip_, Authority().Issue("b.example"), stranger.Issue("a.example")});
  const std::pair<int, std::vector<std::string>> rows[] = {
      // The listener, and names that fit it.
      {0, {"a.example"}},
      {1, {"", http2_ ? "[::1]" : address_}},
      {http2_ ? -1 : 1, {"127.1", "0x7f.0x.1", "127.0.0.1."}},
      {-1, {"a.example/x", "a@b", "a.example\r\nX: 1", "a b", ":1:2"}}};
  for (const auto& [fitting, names] : rows) {
    for (const auto& name : names) {
      for (const int listener : {0, 1, 2, 3}) {
        SCOPED_TRACE("'" + name + "' at listener " + std::to_string(listener));
        // The unchecked connection is in the pool when the checked transfer looks for one.
        EXPECT_TRUE(transport_.Fetch(nginx.url("/index", listener))->success);
        const auto request =
            Pinned(nginx.url("/index", listener), name, address_, nginx.port(listener));
        EXPECT_EQ(transport_.Fetch(request)->success, listener == fitting);
      }
    }
  }
  for (const std::string url : {"https://a.example/index", "https://a.example:1/index"}) {
    const auto request = Pinned(url, "a.example", address_, nginx.port());
    EXPECT_TRUE(transport_.Fetch(request)->success) << url;
  }
  Transport checking(Authority().trust_store(), true);
  for (const int i : {0, 1}) EXPECT_EQ(checking.Fetch(nginx.url("/index", i))->success, i == 1);
}

TEST_P(TlsTest, FollowsARedirectUnderTheSameCheck) {
  const NginxServer other = Serve({of_ip_, of_name_});
  const std::pair<std::string, std::string> rows[] = {
      // Where to, and the hosts of the last request as the log has them; empty when it isn't sent.
      {"/index", "a.example a.example a.example"},
      {"https://A.Example.:$server_port/index", "a.example A.Example. a.example"},
      {other.url("/index"), http2_ ? "[::1] [::1] -" : "127.0.0.1 127.0.0.1 -"},
      {other.url("/index", 1), ""},  // An IP whose certificate is for a name.
  };
  for (const auto& [to, hosts] : rows) {
    SCOPED_TRACE(to);
    const NginxServer nginx =
        Serve({of_name_}, "location /start { absolute_redirect off; return 302 " + to + "; }");
    const auto response = transport_.Fetch(Pinned(nginx.url("/start")));
    EXPECT_EQ(response->success, !hosts.empty()) << response->error_text;
    if (hosts.empty()) continue;
    const std::string log = to == other.url("/index") ? other.AccessLog(1) : nginx.AccessLog(2);
    EXPECT_THAT(log, HasSubstr(hosts));
  }
}

INSTANTIATE_TEST_SUITE_P(Http, TlsTest, testing::Bool());

TEST(PinnedHostTest, BypassesTheProxyForListedAddresses) {
  EXPECT_GOOD_CHILD([] {
    const std::string own = Authority().Issue("a.example");
    NginxServer nginx({.listeners = {{"127.0.0.1", own}, {"::1", own}}});
    RawServer proxy(AnswerWith(HttpAnswer("403 Forbidden", "")));
    setenv("https_proxy", proxy.url("").c_str(), 1);
    const struct {
      const char *lower, *upper;
      bool direct[2];  // On IPv4 and on IPv6.
    } rows[] = {{"", "", {false, false}},
                {"127.0.0.2,127.0.0.1/33 ::2/127,127.0.0.1.example", "", {false, false}},
                {"", "a.test, 127.0.0.1,[::1]", {true, true}},
                {"::/127", "*", {false, true}},
                {"127.0.0.3/30\t::3/0", "", {true, false}}};
    for (const auto& row : rows) {
      setenv("no_proxy", row.lower, 1);
      setenv("NO_PROXY", row.upper, 1);
      for (const int v6 : {0, 1}) {
        EXPECT_EQ(
            Transport(Authority().trust_store()).Fetch(Pinned(nginx.url("/index", v6)))->success,
            row.direct[v6])
            << row.lower << row.upper;
      }
    }
    EXPECT_EQ(proxy.connections(), 6);
    return 0;
  });
}

}  // namespace
