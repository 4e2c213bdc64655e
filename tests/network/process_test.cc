#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <tarvel/tarvel.h>

#include <csignal>
#include <filesystem>
#include <set>
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
std::future<std::int64_t> Send(const std::string& url, int time_out_ms = 30'000) {
  const auto status = std::make_shared<std::promise<std::int64_t>>();
  const auto request = std::make_shared<HttpRequestUser>();
  request->url = url;
  request->method = WQBASE::network::kMethodGet;
  request->time_out = time_out_ms;
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

// Those of this process, but for `others`.
std::set<std::string> ThreadsBeside(const std::set<std::string>& others) {
  std::set<std::string> threads;
  for (const auto& each : std::filesystem::directory_iterator("/proc/self/task")) {
    if (others.count(each.path()) == 0) threads.insert(each.path());
  }
  return threads;
}

// As bits, the signal 1 in the lowest.
std::uint64_t BlockedSignals(const std::string& thread) {
  const std::string status = ReadFile(thread + "/status");
  return std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
}

// All but those that a thread raises itself, that can't be blocked, and the C library's own.
const std::uint64_t kBlockable = [] {
  std::uint64_t signals = ~0ULL;
  for (const int signal :
       {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGKILL, SIGSTOP, 32, 33}) {
    signals &= ~(1ULL << (signal - 1));
  }
  return signals;
}();

TEST(ProcessTest, KeepsItsSignalsAndIsNotHeldUpWhileANameServerIsSilent) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("nameserver 127.0.0.53\n")) return kNotPermitted;
    pollfd name_server{SilentNameServer("127.0.0.53"), POLLIN, 0};
    NginxServer server({.files = {{"index", "good"}}});  // No thread of this process.
    const auto others = ThreadsBeside({});
    auto settings = TestSettings();
    settings.enable_httpdns = 1;
    const int id = zo_tarvel::StartTarvelEnvironment(settings);
    EXPECT_EQ(BlockedSignals("/proc/thread-self"), 0U);
    EXPECT_EQ(ThreadsBeside(others).size(), 5U);  // All of the library.
    for (const auto& each : ThreadsBeside(others)) EXPECT_EQ(BlockedSignals(each), kBlockable);
    std::vector<std::future<std::int64_t>> stuck;
    for (int i = 0; i < 200; ++i) stuck.push_back(Send("http://a.example/"));
    EXPECT_EQ(poll(&name_server, 1, 20'000), 1);  // It has been asked.
    const auto threads = ThreadsBeside(others);
    EXPECT_GT(threads.size(), 5U);
    for (const auto& each : threads) EXPECT_EQ(kBlockable & ~BlockedSignals(each), 0U);

    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    const int signals = signalfd(-1, &stop, SFD_CLOEXEC);
    kill(getpid(), SIGTERM);
    signalfd_siginfo taken{};
    EXPECT_EQ(read(signals, &taken, sizeof taken), ssize_t{sizeof taken});

    // The lookups take 10 s each.
    EXPECT_LT(MillisecondsOf([&] { EXPECT_EQ(Send(server.url("/index")).get(), 200); }), 3'000);
    EXPECT_EQ(Send("http://a.example/", 100).get(), 0);
    EXPECT_EQ(Send(server.url("/index")).get(), 200);
    EXPECT_LT(MillisecondsOf([&] { zo_tarvel::ExitTarvelEnvironment(id); }), 3'000);
    EXPECT_THROW(stuck.back().get(), std::future_error);  // Dropped.
    const std::string log = server.AccessLog(2);          // Both requests, on the same connection.
    EXPECT_EQ(log.substr(0, log.size() / 2), log.substr(log.size() / 2));
    return 0;
  });
}

// From now on the kernel ends this process when it changes what a signal does, or asks for or sets
// the flags of the descriptor `own`.
bool ForbidMeddling(int own) {
  const auto own_value = static_cast<std::uint32_t>(own);
  sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_rt_sigaction, 0, 2),
                        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 3, 4),  // No new one: just a look.
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fcntl, 0, 2),
                        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, own_value, 1, 0),
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
  const sock_fprog program{std::size(code), code};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0;
}

TEST(ProcessTest, KeepsItsSignalHandlersAndItsOwnSocketsAsTheyAre) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("nameserver 127.0.0.53\n")) return kNotPermitted;
    CertificateAuthority authority;
    NginxServer server({.listeners = {{}, {"127.0.0.1", authority.Issue({"a.example"})}},
                        .files = {{"index", "good"}}});
    const ListeningSocket silent("127.0.0.1");
    const std::string never = UrlOf("http", "127.0.0.1", silent.port(), "/");
    int pair[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    std::thread([] {}).join();  // With the first thread, the C library sets a handler of its own.
    if (!ForbidMeddling(pair[0])) return kNotPermitted;
    const std::function<int()> forbidden[] = {
        [] { return std::signal(SIGPIPE, SIG_IGN) != SIG_ERR; },
        [&] { return fcntl(pair[0], F_GETFD); }};
    for (const auto& each : forbidden) EXPECT_EQ(WTERMSIG(RunInChild(each)), SIGSYS);
    for (const int requests : {0, 6, 6}) {  // Of each life of the library.
      const int id = zo_tarvel::StartTarvelEnvironment(TestSettings());
      for (int i = 0; i < requests; ++i) {
        EXPECT_EQ(Send(server.url("/index", i % 2)).get(), 200);
        if (i != 3) continue;
        EXPECT_EQ(Send("http://a.example/").get(), 0);
        EXPECT_EQ(Send(never, 100).get(), 0);
        Send(never);  // In flight until the exit.
        zo_tarvel::GetTarvelObject(id)->NotifyNetworkChanged(zo_net::kAddressFamilyAny);
      }
      zo_tarvel::ExitTarvelEnvironment(id);
    }
    // An instrumented process's check for leaks sets handlers of its own at a regular end.
    std::_Exit(HasFailure() ? 1 : 0);
    return 0;
  });
}

// What a program that this process executes finds open, but for files and local sockets.
std::string InheritedDescriptors() {
  Program list({"/bin/sh", "-c",
                "for each in $(ls -l /proc/self/fd | grep -oP '(socket:.\\K\\d+|anon_inode:.*)')\n"
                "do grep -qwF $each /proc/net/unix || echo $each; done"});
  list.Wait();
  return list.output();
}

TEST(ProcessTest, HandsNoConnectionToItsChildren) {
  EXPECT_GOOD_CHILD([] {
    HttpServer server;
    RawServer silent(NeverAnswers());
    EXPECT_NE(socket(AF_INET, SOCK_STREAM, 0), -1);  // The process's own, which they do inherit.
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
