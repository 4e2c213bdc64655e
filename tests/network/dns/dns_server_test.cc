#include "network/dns/dns_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/name_server.h"
#include "tests/support/private_network.h"
#include "tests/support/transport.h"

// Against a real name server in a private network.
namespace zo_net {
namespace {

using namespace test_support;
using Result = DnsServer::HostResult;

// A started DnsServer.
struct Resolver {
  Resolver() { server->Start(); }
  ~Resolver() {
    if (server) server->Stop();  // Here, as its own thread may hold the last reference.
  }

  Result Resolve(const std::string& host, AddressFamily family = kAddressFamilyAny) const {
    const auto done = std::make_shared<std::promise<Result>>();
    const auto take = [done](const Result& result) { done->set_value(result); };
    server->GetHostByName(host, take, family);
    return done->get_future().get();
  }

  std::shared_ptr<DnsServer> server = std::make_shared<DnsServer>();
};

// Runs in a child. The name server knows the names under "example". For silent.example it asks
// another one, which never answers; `body` gets the socket where these questions arrive.
int WithNameServer(const std::function<void(pollfd)>& body) {
  if (!EnterPrivateNetwork("nameserver 127.0.0.1\n")) return kNotPermitted;
  const pollfd silent{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), POLLIN, 0};
  const sockaddr_in address{AF_INET, htons(53), {inet_addr("127.0.0.2")}, {}};
  EXPECT_EQ(bind(silent.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const NameServer name_server(
      {"--local=/example/", "--server=/silent.example/127.0.0.2",
       "--host-record=good.example,192.0.2.1", "--host-record=good.example,192.0.2.2",
       "--host-record=six.example,2001:db8::1", "--cname=alias.example,good.example"});
  body(silent);
  return 0;
}
#define EXPECT_GOOD_LOOKUPS(...) EXPECT_GOOD_CHILD([] { return WithNameServer(__VA_ARGS__); })

TEST(DnsServerTest, TellsWhatTheNameServerSays) {
  EXPECT_GOOD_LOOKUPS([](auto&&) {
    const std::string good = " 192.0.2.1 192.0.2.2";
    const std::string six = "2: six.example 2001:0db8:0000:0000:0000:0000:0000:0001";
    const struct {
      const char* host;
      AddressFamily family;
      std::string result;  // "family: names addresses".
    } rows[] = {
        {"good.example", kAddressFamilyIPv4, "1: good.example" + good},
        {"good.example", kAddressFamilyAny, "1: good.example" + good},
        {"good.example", kAddressFamilyIPv6, "0: "},
        {"six.example", kAddressFamilyIPv6, six},
        {"six.example", kAddressFamilyAny, six},
        {"six.example", kAddressFamilyIPv4, "0: "},
        {"alias.example", kAddressFamilyIPv4, "1: good.example alias.example" + good},
        {"none.example", kAddressFamilyAny, "0: "},
        {"", kAddressFamilyIPv4, "0: "},
    };
    const Resolver resolver;
    for (const auto& row : rows) {
      Result result = resolver.Resolve(row.host, row.family);
      std::string text = std::to_string(result.address_family) + ": " + result.host;
      for (const auto& alias : result.aliases) text += " " + alias;
      std::sort(result.addresses.begin(), result.addresses.end());
      for (const auto& address : result.addresses) text += " " + address;
      EXPECT_EQ(text, row.result) << row.host << " of " << row.family;
      EXPECT_EQ(result.success, row.result != "0: ");
      EXPECT_TRUE(result.valid);
    }
  });
}

TEST(DnsServerTest, UsesNoDescriptorThatDoesNotFitASet) {
  EXPECT_GOOD_LOOKUPS([](auto&&) {
    const rlimit limit{2'200, 2'200};
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<int> open;
    while (open.size() < 2'000) open.push_back(dup(STDERR_FILENO));
    ASSERT_GE(open.back(), 2'000);
    const Resolver resolver;
    const auto fail = [&] { EXPECT_FALSE(resolver.Resolve("good.example").success); };
    EXPECT_LT(MillisecondsOf(fail), 1'000);
    for (const int fd : open) close(fd);
    EXPECT_TRUE(resolver.Resolve("good.example").success);
  });
}

TEST(DnsServerTest, GoesOnAfterASilentNameServer) {
  EXPECT_GOOD_LOOKUPS([](pollfd question) {
    const Resolver resolver;
    std::promise<std::map<std::string, Result>> all;
    const auto held = std::make_shared<int>();
    const auto take = [&all, held](const auto& results) { all.set_value(results); };
    const auto taken = MillisecondsOf([&] {
      const std::list<std::string> hosts{"silent.example", "good.example", "none.example"};
      resolver.server->GetHostByName(std::list<std::string>{}, take,
                                     kAddressFamilyAny);  // No call.
      resolver.server->GetHostByName(hosts, take, kAddressFamilyIPv4);
      EXPECT_EQ(poll(&question, 1, 20'000), 1);
      EXPECT_EQ(held.use_count(), 3);  // Here, in `take`, and once for all lookups.
      const auto results = all.get_future().get();
      ASSERT_EQ(results.size(), 3U);
      EXPECT_FALSE(results.at("silent.example").success);
      EXPECT_TRUE(results.at("good.example").success);
      EXPECT_FALSE(results.at("none.example").success);
    });
    EXPECT_GE(taken, 2'900);
    EXPECT_LT(taken, 5'000);
  });
}

TEST(DnsServerTest, StopsPromptlyInTheMiddleOfASilentLookup) {
  EXPECT_GOOD_LOOKUPS([](pollfd question) {
    for (const bool released : {false, true}) {
      Resolver resolver;
      std::atomic<int> failed{0};
      const auto count = [&failed](const Result& result) { failed += result.success ? 100 : 1; };
      const std::string name = released ? "a.silent.example" : "b.silent.example";
      resolver.server->GetHostByName(name, count, kAddressFamilyIPv4);
      resolver.server->GetHostByName("good.example", count, kAddressFamilyIPv4);
      EXPECT_EQ(poll(&question, 1, 20'000), 1);  // The name server has been asked.
      for (char byte; recv(question.fd, &byte, 1, MSG_DONTWAIT) >= 0;) continue;
      const auto end = [&] { released ? resolver.server.reset() : resolver.server->Stop(); };
      EXPECT_LT(MillisecondsOf(end), 200);
      if (!released) resolver.server->GetHostByName("good.example", count, kAddressFamilyIPv4);
      EXPECT_EQ(failed, released ? 0 : 1);
    }
  });
}

}  // namespace
}  // namespace zo_net
