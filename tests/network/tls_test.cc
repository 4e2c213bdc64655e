#include <gmock/gmock.h>

#include <string>
#include <utility>

#include "tests/network/transport.h"
#include "tests/support/child_process.h"
#include "tests/support/nginx_server.h"
#include "tests/support/program.h"

namespace {

using namespace test_support;
using testing::HasSubstr;
using testing::Not;

CertificateAuthority& Authority() {
  static CertificateAuthority authority;
  return authority;
}

// A request on an IP literal that stands for a.example.
std::shared_ptr<HttpRequest> Pinned(const std::string& url, int port) {
  auto request = Get(url);
  request->sni = true;
  request->host = "a.example";
  request->ip = "127.0.0.1";
  request->port = port;
  return request;
}

// Over HTTP/1.1 on an IPv4 address, and over HTTP/2 on an IPv6 one.
class TlsTest : public testing::TestWithParam<bool> {
 protected:
  NginxServer Serve(const ServerCertificate& certificate, std::string text = "") const {
    return NginxServer({.listeners = {{address_, certificate, http2_}},
                        .files = {{"index", "it is here"}},
                        .server_text = std::move(text)});
  }

  const bool http2_ = GetParam();
  const std::string address_ = http2_ ? "::1" : "127.0.0.1";
};

TEST_P(TlsTest, ChecksTheNameBehindAnIPAndNothingWithoutOne) {
  CertificateAuthority stranger;
  const struct {
    ServerCertificate certificate;
    std::string error;
  } rows[] = {{Authority().Issue({"a.example"}), ""},
              {Authority().Issue({"b.example"}), "a.example"},
              {Authority().Issue({"a.example"}, Validity::kExpired), "expired"},
              {stranger.Issue({"a.example"}), "issuer"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.error);
    NginxServer nginx = Serve(row.certificate);
    const std::string url = nginx.url("/index");
    Transport transport(Authority().trust_store());
    // The unchecked connection is in the pool when the checked transfer looks for one.
    EXPECT_EQ(transport.Fetch(url)->body_text, "it is here");
    const auto request = Pinned(url, nginx.port());
    const auto response = transport.Fetch(request);
    EXPECT_EQ(response->success, row.error.empty());
    EXPECT_THAT(response->error_text, HasSubstr(row.error));
    EXPECT_FALSE(Transport(Authority().trust_store(), true).Fetch(url)->success);  // No such IP.
    if (row.error.empty()) {
      const std::string protocol = http2_ ? "HTTP/2.0" : "HTTP/1.1";
      // Server name, Host, TLS name.
      EXPECT_THAT(nginx.AccessLog(2), HasSubstr(protocol + " a.example a.example a.example"));
    } else {
      EXPECT_EQ(transport.Fetch(url)->body_text, "it is here");
      EXPECT_THAT(nginx.AccessLog(2), Not(HasSubstr("a.example")));
    }
  }
}

TEST_P(TlsTest, FollowsARedirectUnderTheSameCheck) {
  const ServerCertificate of_name = Authority().Issue({"a.example"});
  NginxServer other({.listeners = {{address_, Authority().Issue({address_}), http2_},
                                   {address_, of_name, http2_}},
                     .files = {{"index", "it is there"}}});
  const struct {
    std::string to;
    bool followed;
    std::string host;  // What the last request named.
  } rows[] = {
      {"/index", true, "a.example"},  // The same host, relative.
      {"https://A.Example.:$server_port/index", true, "A.Example."},
      {other.url("/index"), true, http2_ ? "[::1]" : address_},
      {other.url("/index", 1), false, ""},  // An IP whose certificate is for a name.
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.to);
    NginxServer nginx =
        Serve(of_name, "location /start { absolute_redirect off; return 302 " + row.to + "; }");
    Transport transport(Authority().trust_store());
    const auto response = transport.Fetch(Pinned(nginx.url("/start"), nginx.port()));
    EXPECT_EQ(response->success, row.followed) << response->error_text;
    if (!row.followed) continue;
    const bool stays = row.to != other.url("/index");
    EXPECT_EQ(response->body_text, stays ? "it is here" : "it is there");
    EXPECT_THAT(stays ? nginx.AccessLog(2) : other.AccessLog(1),
                HasSubstr(" " + row.host + (stays ? " a.example " : " - ")));
  }
}

INSTANTIATE_TEST_SUITE_P(Http, TlsTest, testing::Bool());

// A prime of 10,000 bits takes a second of the transport's thread.
TEST(HandshakeTest, OffersNoKeyExchangeOverAPrimeOfTheServers) {
  const TempDirectory directory;
  const std::string prime = directory.path() + "prime", certificate = directory.path() + "cert";
  const std::string key = directory.path() + "key";  // Of RSA, as these exchanges want one.
  Program({"/bin/sh", "-c",
           "openssl genpkey -genparam -algorithm DH -pkeyopt group:ffdhe2048 -out " + prime +
               " && openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=a -keyout " + key +
               " -out " + certificate})
      .Wait();
  for (const std::string exchange : {"kDHE", "kDHE:kECDHE"}) {
    NginxServer nginx({.listeners = {{"127.0.0.1", ServerCertificate{certificate, key}}},
                       .files = {{"x", ""}},
                       .server_text = "ssl_protocols TLSv1.2; ssl_dhparam " + prime +
                                      "; ssl_ciphers " + exchange + ";"});
    EXPECT_EQ(Transport().Fetch(nginx.url("/x"))->success, exchange != "kDHE");
  }
}

TEST(PinnedHostTest, IsReachedWithoutTheProxyWhenNoProxyListsItsIP) {
  EXPECT_GOOD_CHILD([] {
    const ServerCertificate own = Authority().Issue({"a.example"});
    NginxServer nginx({.listeners = {{"127.0.0.1", own}, {"::1", own}}, .files = {{"x", ""}}});
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
        const auto request = Pinned(nginx.url("/x", v6), 0);
        EXPECT_EQ(Transport(Authority().trust_store()).Fetch(request)->success, row.direct[v6])
            << row.lower << row.upper;
      }
    }
    EXPECT_EQ(proxy.connections(), 6);
    return 0;
  });
}

TEST(PinnedHostTest, GoesToTheGivenIPFallsBackToItWithoutANameAndRefusesANameThatIsNone) {
  const std::string ip = "127.0.0.1";
  NginxServer nginx(
      {.listeners = {{ip, Authority().Issue({"a.example"})}, {ip, Authority().Issue({ip})}},
       .files = {{"x", ""}}});
  Transport transport(Authority().trust_store());
  for (const std::string url : {"https://a.example/x", "https://a.example:1/x"}) {
    EXPECT_TRUE(transport.Fetch(Pinned(url, nginx.port()))->success) << url;
  }
  const std::string line = "HTTP/1.1 a.example a.example a.example [0-9]+ GET /x\n";
  EXPECT_THAT(nginx.AccessLog(2), testing::MatchesRegex(line + line));
  for (const std::string host : {"", "127.0.0.1", "127.1", "0x7f.0x.1", "127.0.0.1."}) {
    for (const bool is_of_ip : {true, false}) {
      const std::string url = UrlOf("https", host.empty() ? ip : host, nginx.port(is_of_ip), "/x");
      EXPECT_TRUE(transport.Fetch(url)->success);  // Its connection was opened without a check.
      const auto request = Pinned(url, nginx.port(is_of_ip));
      request->host = host;
      EXPECT_EQ(transport.Fetch(request)->success, is_of_ip) << host;
    }
  }
  for (const std::string host : {"a.example/x", "a@b", "a.example\r\nX: 1", "a b", ":1:2"}) {
    const auto request = Pinned(nginx.url("/refused"), nginx.port());
    request->host = host;
    EXPECT_NE(transport.Fetch(request)->error_text, "") << host;
  }
  EXPECT_TRUE(transport.Fetch(nginx.url("/x"))->success);
  EXPECT_THAT(nginx.AccessLog(9), Not(HasSubstr("/refused")));
}

}  // namespace
