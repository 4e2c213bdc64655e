#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <tarvel/tarvel.h>

#include <csignal>
#include <filesystem>

#include "tarvel/environment/environment_manager_storage.h"
#include "tests/engine/engine.h"
#include "tests/support/child_process.h"
#include "tests/support/http_server.h"
#include "tests/support/nginx_server.h"
#include "tests/support/private_network.h"
#include "tests/support/test_settings.h"
#include "tests/support/transport.h"

// The transport leaves the process that it runs in alone.
namespace {

using namespace test_support;

// Sends through the environment's client.
std::future<std::int64_t> Send(const std::string& url, int time_out_ms = 30'000) {
  const auto status = std::make_shared<std::promise<std::int64_t>>();
  const auto request = std::make_shared<WQBASE::network::HttpRequestUser>();
  static_cast<HttpRequest&>(*request) = *Get(url, time_out_ms);
  request->callback = [status](const auto& response, std::int32_t) {
    status->set_value(response->status);
  };
  zo_tarvel::GetHttpClient()->send(request);
  return status->get_future();
}

// Expects that each thread of the library blocks all signals but those of faults, and returns how
// many threads these are. Their names tell them apart.
int CountThreads() {
  // All but SIGILL, SIGTRAP, SIGBUS, SIGFPE, SIGKILL, SIGSEGV, SIGSTOP, SIGSYS and the C library's
  // own, 32 and 33.
  constexpr std::uint64_t kBlockable = 0xffff'fffe'3ffb'fa27;
  int count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    const std::string status = ReadFile(thread.path() / "status");
    if (status.empty() || status.starts_with("Name:\ttarvel_network_")) continue;
    const auto blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
    EXPECT_EQ(blocked & kBlockable, kBlockable);
    ++count;
  }
  return count;
}

// Has the kernel kill this process when it changes the action of a signal. Some changes that others
// make late are made first: the C library sets a handler with the first thread, and a check for
// leaks sets some.
bool ForbidSignalActions() {
  std::thread([] {}).join();
  const auto check = reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, "__lsan_do_leak_check"));
  if (check != nullptr) check();
  sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_rt_sigaction, 0, 2),
                        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 1),  // Null: it only reads.
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
  const sock_fprog program{std::size(code), code};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0;
}

TEST(ProcessTest, LeavesSignalsAloneAndWorksOnWhileLookupsHang) {
  EXPECT_GOOD_CHILD([] {
    if (!EnterPrivateNetwork("nameserver 127.0.0.53\n")) return kNotPermitted;
    const int name_server = socket(AF_INET, SOCK_DGRAM, 0);  // Nobody reads it.
    const sockaddr_in address{AF_INET, htons(53), {inet_addr("127.0.0.53")}, {}};
    EXPECT_EQ(bind(name_server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    CertificateAuthority authority;
    NginxServer tls({.listeners = {{"127.0.0.1", authority.Issue("a.example")}}});
    HttpServer server;
    RawServer silent(NeverAnswers());
    const ListeningSocket holding("127.0.0.1");
    if (!ForbidSignalActions()) return kNotPermitted;
    for (const bool used : {false, true, true}) {  // One life of the library each.
      const int id = zo_tarvel::StartTarvelEnvironment(TestSettings());
      sigset_t mask;
      EXPECT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &mask), 0);
      EXPECT_TRUE(sigisemptyset(&mask));
      std::vector<std::future<std::int64_t>> dropped;
      if (used) {
        for (int i = 0; i < 200; ++i) dropped.push_back(Send("http://a.example/"));
        dropped.push_back(Send(silent.url("/")));
        auto held = Send(holding.url("/"));
        const int connection = accept(holding.fd(), nullptr, nullptr);
        EXPECT_GT(CountThreads(), 200);  // Most are those of lookups.
        const auto begin = zo_base::SteadyMilliseconds();
        for (const auto& url : {server.url("/"), tls.url("/index")}) {
          for (const int i : {0, 1}) EXPECT_EQ(Send(url).get(), 200) << i;
        }
        for (const auto& url : {silent.url("/"), std::string("http://a.example/")}) {
          EXPECT_EQ(Send(url, 100).get(), 0);
        }
        zo_tarvel::GetTarvelObject(id)->NotifyNetworkChanged(zo_net::kAddressFamilyAny);
        EXPECT_EQ(Send(server.url("/")).get(), 200);
        EXPECT_LT(zo_base::SteadyMilliseconds() - begin, 3'000);  // A lookup takes 10 s.
        EXPECT_EQ(RunInChild([id] {
                    zo_tarvel::ExitTarvelEnvironment(id);
                    return zo_tarvel::StartTarvelEnvironment(TestSettings());
                  }),
                  0);
        EXPECT_GT(dprintf(connection, "%s", HttpAnswer("200 OK", "").c_str()), 0);
        EXPECT_EQ(held.get(), 200);
      }
      EXPECT_LT(MillisecondsOf([&] { zo_tarvel::ExitTarvelEnvironment(id); }), 3'000);
      for (auto& request : dropped) EXPECT_THROW(request.get(), std::future_error);
    }
    EXPECT_EQ(server.connections(), KeepsConnections() ? 4 : 6);  // One in each network.
    return 0;
  });
}

TEST(ProcessTest, OutlivesALackOfDescriptors) {
  EXPECT_GOOD_CHILD([] {
    // The address sanitizer's check of virtual calls needs a pipe.
    if (dlsym(RTLD_DEFAULT, "__asan_init") != nullptr) return kNotPermitted;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 2'200;
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    HttpServer server;
    Transport transport;
    std::vector<int> taken;
    for (int fd; (fd = open("/dev/null", O_CLOEXEC)) != -1;) taken.push_back(fd);
    const int id = zo_tarvel::StartTarvelEnvironment(TestSettings());
    EXPECT_EQ(Send(server.url("/")).get(), 0);
    EXPECT_NE(transport.Fetch(server.url("/"))->error_text, "");
    EXPECT_NE(transport.Fetch("http://localhost/")->error_text, "");
    for (std::size_t i = 2'000; i < taken.size(); ++i) close(taken[i]);
    EXPECT_TRUE(transport.Fetch(server.url("/"))->success);
    EXPECT_EQ(Send(server.url("/")).get(), 200);
    for (int fd = 0; fd < 2'200; ++fd) {
      int domain = 0;
      socklen_t size = sizeof domain;
      getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size);
      EXPECT_TRUE(domain != AF_INET || fcntl(fd, F_GETFD) == FD_CLOEXEC) << fd;
    }
    zo_tarvel::ExitTarvelEnvironment(id);
    return 0;
  });
}

}  // namespace
