#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <tarvel/tarvel.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "tarvel/environment/environment_manager_storage.h"
#include "tests/network/transport.h"
#include "tests/support/child_process.h"
#include "tests/support/event.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"
#include "tests/support/private_network.h"
#include "tests/support/program.h"
#include "tests/support/test_settings.h"

// What the transport may not do to the process that it lives in.
namespace {

using namespace test_support;
using WQBASE::network::HttpRequestUser;

// Sends through the client of the environment that is up.
std::future<std::int64_t> Send(const std::string& url) {
  const auto status = std::make_shared<std::promise<std::int64_t>>();
  const auto request = std::make_shared<HttpRequestUser>();
  request->url = url;
  request->method = WQBASE::network::kMethodGet;
  request->callback = [status](const auto& response, std::int32_t) {
    status->set_value(response->status);
  };
  zo_tarvel::GetHttpClient()->send(request);
  return status->get_future();
}

// A name server that never answers: nobody reads its socket.
int SilentNameServer(const char* address_text) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(53);
  address.sin_addr.s_addr = inet_addr(address_text);
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return fd;
}

TEST(ProcessTest, IsNotHeldUpByASilentNameServer) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("nameserver 127.0.0.53\n")) return kNotPermitted;
    pollfd name_server{SilentNameServer("127.0.0.53"), POLLIN, 0};
    HttpServer server;
    const int id = zo_tarvel::StartTarvelEnvironment(TestSettings());
    std::vector<std::future<std::int64_t>> stuck;
    for (int i = 0; i < 200; ++i) stuck.push_back(Send("http://a.example/"));
    EXPECT_EQ(poll(&name_server, 1, 20'000), 1);  // It has been asked.
    // The lookups take 10 s each.
    EXPECT_LT(MillisecondsOf([&] { EXPECT_EQ(Send(server.url("/")).get(), 200); }), 3'000);
    EXPECT_LT(MillisecondsOf([&] { zo_tarvel::ExitTarvelEnvironment(id); }), 3'000);
    EXPECT_THROW(stuck.back().get(), std::future_error);  // Dropped.
    return 0;
  });
}

TEST(ProcessTest, GetsNoSignalFromAServerThatClosesUnderAnUpload) {
  EXPECT_GOOD_CHILD([] {
    std::signal(SIGPIPE, SIG_DFL);
    CertificateAuthority authority;
    RawServer plain([](RawConnection& connection) { connection.Reset(); });
    NginxServer tls({.listeners = {{"127.0.0.1", authority.Issue({"a.example"})}},
                     .server_text = "client_max_body_size 1k; lingering_close off;"});
    Transport transport;
    for (const std::string& url : {plain.url("/"), tls.url("/")}) {
      for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(transport.Fetch(Post(url, std::string(4'000'000, 'x')))->success);
      }
    }
    return 0;
  });
}

// What a program that this process executes finds open, but for files.
std::string InheritedDescriptors() {
  Program list({"/bin/sh", "-c", "ls -l /proc/self/fd | grep -oE '(socket|anon_inode):.*'"});
  list.Wait();
  return list.output();
}

TEST(ProcessTest, HandsNoDescriptorToItsChildren) {
  EXPECT_GOOD_CHILD([] {
    HttpServer server;
    RawServer silent(NeverAnswers());
    EXPECT_NE(socket(AF_UNIX, SOCK_STREAM, 0), -1);  // The process's own, which they do inherit.
    const auto before = InheritedDescriptors();
    EXPECT_NE(before, "");
    Transport transport;
    EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
    const auto in_flight = transport.Start(Get(silent.url("/")));
    while (silent.connections() < 1) std::this_thread::yield();
    EXPECT_EQ(InheritedDescriptors(), before);
    return 0;
  });
}

TEST(ProcessTest, MayHaveThousandsOfDescriptorsOpen) {
  EXPECT_GOOD_CHILD([] {
    constexpr int kMany = 2'000;
    const rlimit limit{kMany + 200, kMany + 200};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return kNotPermitted;
    HttpServer server;
    for (int i = 0; i < kMany; ++i) EXPECT_NE(open("/dev/null", O_RDONLY), -1);
    Transport transport;
    EXPECT_EQ(transport.Fetch(server.url("/"))->error_text, "");
    const std::string by_name = "http://localhost:" + std::to_string(server.port());
    EXPECT_EQ(transport.Fetch(by_name)->error_text, "");
    return 0;
  });
}

TEST(ProcessTest, GetsAnAnswerForEachRequestWhenItRunsOutOfDescriptors) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the check of virtual calls opens a pipe, and takes its failure for a bad object";
#endif
  EXPECT_GOOD_CHILD([] {
    HttpServer server;
    Transport transport;
    std::vector<int> taken;
    for (int fd; (fd = open("/dev/null", O_RDONLY)) != -1;) taken.push_back(fd);
    EXPECT_EQ(WQBASE::network::CurlRequestor::Create({}), nullptr);
    EXPECT_NE(transport.Fetch(server.url("/"))->error_text, "");
    EXPECT_NE(transport.Fetch("http://localhost/")->error_text, "");
    for (int i = 0; i < 20; ++i) close(taken.at(i));
    EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
    return 0;
  });
}

TEST(ProcessTest, MayForkWhileTransfersAreInFlight) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the leak check takes what the parent's threads own for lost";
#endif
  EXPECT_GOOD_CHILD([] {
    HttpServer server;
    Event release;
    server.Answer("/held", [&](const SeenRequest&) {
      return ServerAnswer{release.Await() ? 200 : 500, {}, ""};
    });
    const int id = zo_tarvel::StartTarvelEnvironment(TestSettings());
    EXPECT_EQ(Send(server.url("/")).get(), 200);
    auto held = Send(server.url("/held"));
    while (server.requests().size() < 2) std::this_thread::yield();
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      zo_tarvel::ExitTarvelEnvironment(id);
      std::exit(zo_tarvel::StartTarvelEnvironment(TestSettings()));
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    release.Set();
    EXPECT_EQ(held.get(), 200);
    EXPECT_EQ(Send(server.url("/")).get(), 200);
    zo_tarvel::ExitTarvelEnvironment(id);
    return 0;
  });
}

TEST(EnvironmentTransportTest, OpensNewConnectionsAfterANetworkChangeAndEndsWhatIsOnTheOld) {
  HttpServer server;
  Event release;
  server.Answer("/held", [&](const SeenRequest&) {
    return ServerAnswer{release.Await() ? 200 : 500, {}, ""};
  });
  const int id = zo_tarvel::StartTarvelEnvironment(TestSettings());
  const auto change_network = [id] {
    zo_tarvel::GetTarvelObject(id)->NotifyNetworkChanged(zo_net::kAddressFamilyIPv4);
  };
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Send(server.url("/")).get(), 200);
  EXPECT_EQ(server.connections(), 1);
  change_network();
  auto held = Send(server.url("/held"));
  while (server.requests().size() < 3) std::this_thread::yield();
  EXPECT_EQ(server.connections(), 2);
  change_network();
  release.Set();
  EXPECT_EQ(held.get(), 200);
  EXPECT_EQ(Send(server.url("/")).get(), 200);
  EXPECT_EQ(server.connections(), 3);
  zo_tarvel::ExitTarvelEnvironment(id);
}

}  // namespace
