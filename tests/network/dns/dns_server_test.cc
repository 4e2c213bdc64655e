#include "network/dns/dns_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>

#include "tests/support/child_process.h"
#include "tests/support/name_server.h"
#include "tests/support/private_network.h"
#include "tests/support/transport.h"

// Against a real name server in a private network.
namespace zo_net {
namespace {

using namespace test_support;
using Result = DnsServer::HostResult;

std::shared_ptr<DnsServer> StartedServer() {
  auto server = std::make_shared<DnsServer>();
  server->Start();
  return server;
}

// Returns "family name: aliases and addresses", or "none".
std::string Resolve(DnsServer& server, const std::string& host, int family) {
  std::promise<Result> done;
  const auto take = [&](const Result& result) { done.set_value(result); };
  server.GetHostByName(host, take, static_cast<AddressFamily>(family));
  Result result = done.get_future().get();
  if (!result.valid || !result.success) return "none";
  std::string text = std::to_string(result.address_family) + " " + result.host + ":";
  for (const auto& alias : result.aliases) text += " " + alias;
  std::sort(result.addresses.begin(), result.addresses.end());
  for (const auto& address : result.addresses) text += " " + address;
  return text;
}

// Runs in a child. The name server knows the names under "example". For silent.example it asks
// another one, which never answers; `body` gets the socket where these questions arrive.
int WithNameServer(const std::function<void(pollfd)>& body) {
  if (!EnterPrivateNetwork("nameserver 127.0.0.1\n")) return kNotPermitted;
  const pollfd silent{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), POLLIN, 0};
  const sockaddr_in address{AF_INET, htons(53), {inet_addr("127.0.0.2")}, {}};
  EXPECT_EQ(bind(silent.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const NameServer name_server(
      "--local=/example/ --server=/silent.example/127.0.0.2 --cname=alias.example,good.example"
      " --host-record=good.example,192.0.2.1 --host-record=good.example,192.0.2.2"
      " --host-record=six.example,2001:db8::1");
  body(silent);
  return 0;
}
#define EXPECT_GOOD_LOOKUPS(...) EXPECT_GOOD_CHILD([] { return WithNameServer(__VA_ARGS__); })

TEST(DnsServerTest, TellsWhatTheNameServerSaysIfDescriptorsFit) {
  EXPECT_GOOD_LOOKUPS([](auto&&) {
    const rlimit limit{2'200, 2'200};
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<int> open;
    while (open.size() < 2'000) open.push_back(dup(STDERR_FILENO));
    ASSERT_GE(open.back(), 2'000);
    const auto server = StartedServer();
    EXPECT_EQ(Resolve(*server, "good.example", 1), "none");
    for (const int fd : open) close(fd);
    const std::string good = "1 good.example: 192.0.2.1 192.0.2.2", none = "none";
    const std::string alias = "1 good.example: alias.example 192.0.2.1 192.0.2.2";
    const std::string six = "2 six.example: 2001:0db8:0000:0000:0000:0000:0000:0001";
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        // The results for any family, IPv4 and IPv6.
        {"good.example", {good, good, none}},
        {"six.example", {six, none, six}},
        {"alias.example", {alias, alias, none}},
        {"none.example", {none, none, none}},
        {"", {none, none, none}},
    };
    for (const auto& [host, results] : rows) {
      for (const int family : {0, 1, 2}) {
        EXPECT_EQ(Resolve(*server, host, family), results[family]) << host << " of " << family;
      }
    }
  });
}

TEST(DnsServerTest, WaitsForNoSilentNameServerForLong) {
  EXPECT_GOOD_LOOKUPS([](pollfd question) {
    std::promise<std::string> all;
    const auto take = [&](const std::map<std::string, Result>& results) {
      std::string text;
      for (const auto& [host, result] : results) text += host + (result.success ? "," : " fails,");
      all.set_value(text);
    };
    auto server = StartedServer();
    const auto taken = MillisecondsOf([&] {
      server->GetHostByName(std::list<std::string>{}, take, kAddressFamilyIPv4);  // No call.
      server->GetHostByName({"silent.example", "good.example", "none.example"}, take,
                            kAddressFamilyIPv4);
      EXPECT_EQ(all.get_future().get(), "good.example,none.example fails,silent.example fails,");
    });
    EXPECT_GE(taken, 2'900);
    EXPECT_LT(taken, 5'000);
    for (const bool released : {false, true}) {  // An end in the middle of a lookup.
      std::atomic<int> failed{0};
      const auto count = [&failed](const Result& result) { failed += result.success ? 100 : 1; };
      server = StartedServer();
      for (char byte; recv(question.fd, &byte, 1, MSG_DONTWAIT) >= 0;) continue;
      server->GetHostByName(released ? "a.silent.example" : "silent.example", count,
                            kAddressFamilyIPv4);
      server->GetHostByName("good.example", count, kAddressFamilyIPv4);
      EXPECT_EQ(poll(&question, 1, 20'000), 1);  // The name server has been asked.
      const auto end = [&] { released ? server.reset() : server->Stop(); };
      EXPECT_LT(MillisecondsOf(end), 200);
      if (!released) server->GetHostByName("good.example", count, kAddressFamilyIPv4);
      EXPECT_EQ(failed, released ? 0 : 1);
    }
  });
}

}  // namespace
}  // namespace zo_net
