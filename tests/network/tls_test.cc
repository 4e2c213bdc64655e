#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <utility>

#include "tests/network/transport.h"
#include "tests/support/certificate_authority.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"

namespace {

using namespace test_support;
using testing::HasSubstr;

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

enum class Certificate { kRight, kOtherName, kExpired, kSelfMade };

ServerCertificate Make(Certificate kind) {
  const std::vector<std::string> names = {"a.example"};
  switch (kind) {
    case Certificate::kOtherName:
      return Authority().Issue({"b.example"});
    case Certificate::kExpired:
      return Authority().Issue(names, Validity::kExpired);
    case Certificate::kSelfMade:
      return Authority().SelfMade(names);
    default:
      return Authority().Issue(names);
  }
}

struct Server {
  bool http2;
  std::string address;
};

class TlsTest : public testing::TestWithParam<Server> {
 protected:
  NginxServer Serve(Certificate kind, std::string text = "") const {
    return NginxServer({.listeners = {{GetParam().address, Make(kind), GetParam().http2}},
                        .files = {{"/index", "it is here"}},
                        .server_text = std::move(text)});
  }
  const std::string protocol_ = GetParam().http2 ? "HTTP/2.0" : "HTTP/1.1";
};

TEST_P(TlsTest, ChecksTheNameBehindAnIPAndNothingWithoutOne) {
  const struct {
    Certificate kind;
    bool accepted;
    std::string error;
  } rows[] = {
      {Certificate::kRight, true, ""},
      {Certificate::kOtherName, false, "a.example"},
      {Certificate::kExpired, false, "expired"},
      {Certificate::kSelfMade, false, "self"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.kind));
    NginxServer nginx = Serve(row.kind);
    Transport transport(Authority().trust_store());
    // The unchecked connection is in the pool when the checked transfer looks for one.
    EXPECT_EQ(transport.Fetch(nginx.url("/index"))->body_text, "it is here");
    const auto response = transport.Fetch(Pinned(nginx.url("/index"), nginx.port()));
    EXPECT_EQ(response->success, row.accepted) << response->error_text;
    EXPECT_EQ(response->error_text.empty(), row.accepted);
    EXPECT_THAT(response->error_text, HasSubstr(row.error));
    // Protocol, server name, Host, TLS name.
    const std::string log = nginx.AccessLog(1);
    if (row.accepted) {
      EXPECT_THAT(log, HasSubstr(protocol_ + " a.example a.example a.example"));
    } else {
      EXPECT_THAT(log, testing::Not(HasSubstr("a.example")));
    }
  }
}

TEST_P(TlsTest, VerifiesEveryTransferWhenAskedTo) {
  NginxServer nginx = Serve(Certificate::kSelfMade);
  EXPECT_TRUE(Transport(Authority().trust_store()).Fetch(nginx.url("/index"))->success);
  EXPECT_FALSE(Transport(Authority().trust_store(), true).Fetch(nginx.url("/index"))->success);
}

TEST_P(TlsTest, SendsTheHostThatTheLogicGave) {
  NginxServer nginx = Serve(Certificate::kRight);
  Transport transport(Authority().trust_store());
  const auto request = Pinned(nginx.url("/index"), nginx.port());
  request->headers = {{"host", "other.example:77"}};
  EXPECT_TRUE(transport.Fetch(request)->success);
  EXPECT_THAT(nginx.AccessLog(1), HasSubstr("other.example:77 a.example"));
}

TEST_P(TlsTest, FollowsARedirectUnderTheSameCheck) {
  const std::string other_address = GetParam().address == "::1" ? "[::1]" : GetParam().address;
  NginxServer other(
      {.listeners = {{GetParam().address, Authority().Issue({GetParam().address}),
                      GetParam().http2},
                     {GetParam().address, Make(Certificate::kRight), GetParam().http2}},
       .files = {{"/index", "it is there"}}});
  const struct {
    std::string to;
    bool followed;
    std::string host;  // What the last request named.
  } rows[] = {
      {"/index", true, "a.example"},  // The same host, relative.
      {"https://a.example:$server_port/index", true, "a.example"},
      {"https://A.Example.:$server_port/index", true, "A.Example."},
      {other.url("/index"), true, other_address},  // An IP with its own certificate.
      {other.url("/index", 1), false, ""},         // An IP whose certificate is for a name.
      {"https://a.invalid/index", false, ""},      // A host without an address.
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.to);
    NginxServer nginx =
        Serve(Certificate::kRight,
              "location /start { absolute_redirect off; return 302 " + row.to + "; }");
    Transport transport(Authority().trust_store());
    const auto response = transport.Fetch(Pinned(nginx.url("/start"), nginx.port()));
    EXPECT_EQ(response->success, row.followed) << response->error_text;
    if (!row.followed) continue;
    const bool stays = row.host != other_address;
    EXPECT_THAT(stays ? nginx.AccessLog(2) : other.AccessLog(1),
                HasSubstr(" " + row.host + (stays ? " a.example " : " - ")));
  }
}

INSTANTIATE_TEST_SUITE_P(Servers, TlsTest,
                         testing::Values(Server{false, "127.0.0.1"}, Server{true, "127.0.0.1"},
                                         Server{false, "::1"}, Server{true, "::1"}),
                         [](const auto& server) {
                           return std::string(server.param.http2 ? "Http2" : "Http1") +
                                  (server.param.address == "::1" ? "OnIPv6" : "OnIPv4");
                         });

TEST(PinnedHostTest, GoesToTheIPThatTheRequestGivesForAUrlOnTheName) {
  HttpServer server(Make(Certificate::kRight));
  HttpServer plain;
  const std::string port = std::to_string(server.port());
  Transport transport(Authority().trust_store());
  for (const std::string url : {"https://a.example/x", "https://a.example:1/x"}) {
    EXPECT_TRUE(transport.Fetch(Pinned(url, server.port()))->success) << url;
    const SeenRequest seen = server.requests().back();
    EXPECT_EQ(seen.header("Host") + " " + seen.sni, "a.example a.example");
  }
  // Without TLS there is only the Host header to name it.
  EXPECT_TRUE(transport.Fetch(Pinned("http://a.example/x", plain.port()))->success);
  EXPECT_EQ(plain.requests().back().header("Host"), "a.example");
}

TEST(PinnedHostTest, FallsBackToTheIPWhereItHasNoName) {
  HttpServer right(Authority().Issue({"127.0.0.1"}));
  HttpServer wrong(Make(Certificate::kRight));
  Transport transport(Authority().trust_store());
  for (const std::string host : {"", "127.0.0.1"}) {
    const auto request = Pinned(right.url("/"), right.port());
    request->host = host;
    EXPECT_TRUE(transport.Fetch(request)->success) << host;
    // Not over the connection that was opened without a check.
    EXPECT_TRUE(transport.Fetch(wrong.url("/"))->success);
    request->url = wrong.url("/");
    request->port = wrong.port();
    EXPECT_FALSE(transport.Fetch(request)->success) << host;
  }
}

TEST(PinnedHostTest, RefusesAHostThatIsNone) {
  HttpServer server(Make(Certificate::kRight));
  Transport transport(Authority().trust_store());
  for (const std::string host : {"a.example/x", "a@b", "a.example\r\nX: 1", "a b", ":1:2"}) {
    const auto request = Pinned(server.url("/"), server.port());
    request->host = host;
    EXPECT_NE(transport.Fetch(request)->error_text, "") << host;
  }
  EXPECT_TRUE(server.requests().empty());
}

}  // namespace
