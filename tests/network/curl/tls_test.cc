#include <gmock/gmock.h>

#include <cstdlib>
#include <set>

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

// The answer's head and body are longer than small buffers.
TEST(ConnectionTest, OfHttp2IsSharedAndReplacedUnseen) {
  const std::string body(12'000, 'b'), header = " " + std::string(3'000, 'h') + ";";
  const std::string head = "add_header X-A" + header + "add_header X-B" + header;
  for (const std::string closing : {"", "keepalive_requests 7; keepalive_timeout 1s;"}) {
    NginxServer nginx({.listeners = {{"127.0.0.1", Authority().Issue("a.example"), true}},
                       .files = {{"index", body}},
                       .server_text = head + closing});
    Transport transport;
    EXPECT_EQ(transport.Fetch(nginx.url("/index"))->body_text, body);
    std::vector<std::future<ResponsePtr>> responses;
    for (int i = 0; i < 100; ++i) responses.push_back(transport.Start(Get(nginx.url("/index"))));
    for (auto& response : responses) EXPECT_EQ(response.get()->error_text, "");
    const std::string log = nginx.AccessLog(101), first = log.substr(0, log.find('\n') + 1);
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

TEST(TlsTest, ChecksTheNameBehindAnIPOnly) {
  CertificateAuthority stranger;
  std::vector<NginxListener> listeners;
  for (const std::string ip : {"127.0.0.1", "::1"}) {
    for (const auto& certificate : {Authority().Issue("a.example"), Authority().Issue(ip),
                                    Authority().Issue("b.example"), stranger.Issue("a.example")}) {
      listeners.push_back({ip, certificate, ip == "::1"});
    }
  }
  const NginxServer nginx({listeners});
  const std::pair<std::string, std::set<std::size_t>> rows[] = {
      // A name, and the listeners that it fits.
      {"a.example", {0, 4}}, {"", {1, 5}},
      {"127.0.0.1", {1}},    {"127.1", {1}},
      {"0x7f.0x.1", {1}},    {"127.0.0.1.", {1}},
      {"[::1]", {5}},        {"a.example/x", {}},
      {"a@b", {}},           {"a.example\r\nX: 1", {}},
      {"a b", {}},           {":1:2", {}}};
  Transport transport(Authority().trust_store()), checking(Authority().trust_store(), true);
  for (std::size_t i = 0; i < listeners.size(); ++i) {
    const std::string& ip = listeners[i].address;
    for (const auto& [name, fitting] : rows) {
      SCOPED_TRACE("'" + name + "' at listener " + std::to_string(i));
      // The unchecked connection is in the pool when the checked transfer looks for one.
      EXPECT_TRUE(transport.Fetch(nginx.url("/index", i))->success);
      const auto request = Pinned(nginx.url("/index", i), name, ip, nginx.port(i));
      EXPECT_EQ(transport.Fetch(request)->success, fitting.contains(i));
    }
    const auto named = Pinned("https://a.example:1/index", "a.example", ip, nginx.port(i));
    EXPECT_EQ(transport.Fetch(named)->success, i == 0 || i == 4);
    EXPECT_EQ(checking.Fetch(nginx.url("/index", i))->success, i == 1 || i == 5);
  }
}

TEST(TlsTest, FollowsARedirectUnderTheSameCheck) {
  const std::string of_name = Authority().Issue("a.example"), of_ip = Authority().Issue("::1");
  const NginxServer other({.listeners = {{"::1", of_ip, true}, {"::1", of_name, true}}});
  const std::pair<std::string, std::string> rows[] = {
      // A location, and the hosts in the log of the last request; empty when none is sent.
      {"/index", "a.example a.example a.example"},
      {"https://A.Example.:$server_port/index", "a.example A.Example. a.example"},
      {other.url("/index"), "[::1] [::1] -"},
      {other.url("/index", 1), ""},  // An IP whose certificate is for a name.
  };
  for (const auto& [to, hosts] : rows) {
    SCOPED_TRACE(to);
    const NginxServer nginx(
        {.listeners = {{"::1", of_name, true}},
         .server_text = "location /start { absolute_redirect off; return 302 " + to + "; }"});
    const auto response = Transport(Authority().trust_store()).Fetch(Pinned(nginx.url("/start")));
    EXPECT_EQ(response->success, !hosts.empty()) << response->error_text;
    if (hosts.empty()) continue;
    const std::string log = to == other.url("/index") ? other.AccessLog(1) : nginx.AccessLog(2);
    EXPECT_THAT(log, HasSubstr(hosts));
  }
}

// A prime of 10,000 bits would take a second of the transport's thread.
TEST(TlsTest, OffersNoKeyExchangeOverAServersPrime) {
  const TempDirectory directory;
  const std::string prime = directory / "prime";
  Program({"/usr/bin/openssl", "genpkey", "-genparam", "-algorithm", "DH", "-pkeyopt",
           "group:ffdhe2048", "-out", prime})
      .Wait();
  const std::string certificate = Authority().Issue("a.example", EVP_RSA_gen(2048));
  for (const std::string exchange : {"kDHE", "kDHE:kECDHE"}) {
    const NginxServer nginx({.listeners = {{"127.0.0.1", certificate}},
                             .server_text = "ssl_protocols TLSv1.2; ssl_dhparam " + prime +
                                            "; ssl_ciphers " + exchange + ";"});
    EXPECT_EQ(Transport().Fetch(nginx.url("/index"))->success, exchange != "kDHE");
  }
}

TEST(PinnedHostTest, BypassesTheProxyForListedAddresses) {
  EXPECT_GOOD_CHILD([] {
    const std::string own = Authority().Issue("a.example");
    NginxServer nginx({.listeners = {{"127.0.0.1", own}, {"::1", own}}});
    RawServer proxy(AnswerWith(HttpAnswer("403 Forbidden", "")));
    setenv("https_proxy", proxy.url("").c_str(), 1);
    const struct {
      const char *lower, *upper;
      bool direct[2];  // On IPv4 and on IPv6.
    } rows[] = {{"127.0.0.2,127.0.0.1/33 ::2/127,127.0.0.1.example", "", {false, false}},
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
    EXPECT_EQ(proxy.connections(), 4);
    return 0;
  });
}

}  // namespace
