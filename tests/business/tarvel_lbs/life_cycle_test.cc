#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/lbs_client.h"

// Releases, exits, and many threads at once.
namespace zo_tarvel {
namespace {

using namespace test_support;
using testing::AnyOf;

bool AnybodyIsConnected() {
  return GetConfig()->HasConnections(SIG_NetworkChanged) ||
         GetConfig()->HasConnections(SIG_BusinessTokenChanged);
}

class LBSLifeCycleTest : public LBSServiceTest {
 protected:
  LBSLifeCycleTest() { GetConfig()->Disconnect(SIG_NetworkChanged); }  // Of the agent.

  // Starts the service and an update that the server doesn't answer yet.
  void BeginUpdate() {
    Init();
    ServeHeld(Answer("late"));
    service()->Update(kEMAddressFamilyAny, true);
    EXPECT_TRUE(asked_.Await());
  }
  // A callback that is running holds the service strongly.
  void RunAllPostedToTheAgent() {
    Event done;
    MultipleURLHttpRequest request;
    request.result_callback = [&](auto&&...) { done.Set(); };
    environment_->InvokeHttpRequest(request, true);
    EXPECT_TRUE(done.Await());
  }
  void ExpectThatTheNextServiceWorks() {
    Serve({Answer("fresh")});
    Init();
    EXPECT_EQ(TextFrom(&IZOTarvelLBSService::GetDesc), "generated locally");
    EXPECT_EQ(Update(), "200 " + Answer("fresh"));
    EXPECT_THAT(told_.TakeAll(), testing::IsEmpty());
  }
};

TEST_F(LBSLifeCycleTest, AnAnswerAfterTheReleaseReachesNobody) {
  BeginUpdate();
  EXPECT_TRUE(AnybodyIsConnected());
  object()->ReleaseLBSService();
  EXPECT_FALSE(AnybodyIsConnected());
  may_answer_.Set();
  EXPECT_TRUE(RecordedLog::Await("[lbs] Check response strong_this == nullptr"));
  ExpectThatTheNextServiceWorks();
}

TEST_F(LBSLifeCycleTest, AnExitEndsTheWaitForAnUpdate) {
  BeginUpdate();
  RunAllPosted();  // The task that sent the request owns the service no longer.
  IZOTarvelLBSService* const waited_for = service();
  const std::weak_ptr<zo_base::BaseThread> owners =
      dynamic_cast<zo_base::BaseThread&>(*waited_for).shared_from_this<zo_base::BaseThread>();
  const auto owners_before = owners.use_count();
  std::thread waiting(
      [waited_for] { TextFrom([&](char* out) { waited_for->GetLBSResponse(false, out); }); });
  while (owners.use_count() <= owners_before) std::this_thread::yield();  // Not waiting yet.
  environment_->Exit();
  waiting.join();
  may_answer_.Set();
  Restart();
  ExpectThatTheNextServiceWorks();
}

TEST_F(LBSLifeCycleTest, AReleaseWaitsForTheClientsFunction) {
  static std::atomic<bool> left;
  left = false;
  const auto take_time = [](void* entered, const RequestErrorRecord*) {
    static_cast<Event*>(entered)->Set();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    left = true;
  };
  Serve({Answer("fresh")});
  Init();
  service()->SetRequestErrorCollector(take_time, &asked_);
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_TRUE(asked_.Await());
  object()->ReleaseLBSService();
  EXPECT_TRUE(left);
  RunAllPostedToTheAgent();
  EXPECT_THAT(told_.TakeAll(), testing::IsEmpty());
}

TEST_F(LBSLifeCycleTest, ManyReleasesLeaveNoConnectionsBehind) {
  Serve({Answer("fresh")});
  for (int cycle = 0; cycle < 50; ++cycle) {
    SetCallbacks();
    EXPECT_TRUE(service()->Init(settings_));  // The thread may not have begun yet.
    if (cycle % 2 == 0) RunAllPosted();
    service()->Update(kEMAddressFamilyAny, cycle % 3 == 0);
    object()->NotifyNetworkChanged(static_cast<zo_net::AddressFamily>(cycle % 3));
    object()->ReleaseLBSService();
  }
  RunAllPostedToTheAgent();
  EXPECT_FALSE(AnybodyIsConnected());
  Init();
  EXPECT_EQ(Update(), "200 " + Answer("fresh"));
}

// The fork happens during any operation, and during an update that never ends in the child.
TEST_F(LBSLifeCycleTest, NoOperationHangsInAForkedChild) {
  BeginUpdate();
  IZOTarvelObject* const object = this->object();
  IZOTarvelLBSService* const service = this->service();
  const auto use = [this, object, service] {
    service->SetLBSCallback(nullptr, nullptr);
    service->SetAccIDGetter(nullptr, nullptr);
    service->SetRequestErrorCollector(nullptr, nullptr);
    EXPECT_TRUE(service->Init(settings_));
    service->Update(kEMAddressFamilyAny, false);
    service->GetLinkAddress(nullptr, nullptr, nullptr);
    service->GetCurrentLinkAddress(nullptr, nullptr, nullptr);
    service->GetLinkCount();
    _ZOTarvelMsgStatInfo info;
    service->GetMsgStatInfo(&info);
    object->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
    object->GetLBSService();
  };
  std::atomic<bool> is_over{false};
  std::jthread busy([&] {
    while (!is_over) use();
  });
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(10);
      use();
      TextFrom([service](char* out) { service->GetLBSResponse(false, out); });
      object->ReleaseLBSService();
      _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  is_over = true;
  may_answer_.Set();
}

#ifndef __SANITIZE_THREAD__  // TSan supports no threads in a child of a process with threads.
TEST(LBSThreadsTest, NeverHangsWithoutThreadsAndRecoversWithThem) {
  HttpServer server;
  const std::string fresh = R"({"common":{"link":["a:1"],"link.default":["a:1"],"lbs":"ftp:"}})";
  server.Answer(kPath, [&](auto&&) { return LBSServiceTest::GoodAnswer(fresh); });
  for (rlim_t threads = 1; threads <= 6; ++threads) {  // The main thread and 0 to 5 more.
    const TempDirectory directory;
    std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
    EXPECT_GOOD_CHILD([&] {
      _ZOTarvelEnvironmentSettings environment = TestSettings();
      std::strcpy(environment.appdata_path, directory.path().c_str());
      std::strcpy(environment.business_token, "token");
      _ZOTarvelLBSSettings settings;
      std::strcpy(settings.lbs_main_addr, server.url(kPath).c_str());
      rlimit limit{threads, 100};  // Counted for this user alone, who isn't root.
      if (setrlimit(RLIMIT_NPROC, &limit) != 0 || setuid(54'321) != 0) return kNotPermitted;
      StartTarvelEnvironment(environment);
      IZOTarvelLBSService* const service = GetTarvelObject(1)->GetLBSService();
      service->Init(settings);
      const auto updated = [service] {
        service->Update(kEMAddressFamilyAny, true);
        return LBSServiceTest::TextFrom([&](char* out) { service->GetLBSResponse(false, out); });
      };
      EXPECT_TRUE(updated() != fresh || threads > 1);
      limit.rlim_cur = limit.rlim_max;
      EXPECT_EQ(setrlimit(RLIMIT_NPROC, &limit), 0);
      EXPECT_EQ(updated(), fresh);
      ExitTarvelEnvironment(1);
      return 0;
    });
  }
}
#endif

TEST_F(LBSLifeCycleTest, ServesManyThreadsWhileAnswersComeIn) {
  Serve({Answer("a"), Answer("b", R"("ttl":10,)"), Answer("c", R"("zebdl":"c",)")});
  Init();
  Update();
  const auto use = [this](int thread) {
    for (int round = 0; round < 200; ++round) {
      EXPECT_THAT(NextLink(static_cast<EMAddressFamily>(round % 3)),
                  AnyOf("192.0.2.1 81 1", "[2001:db8::2] 82 2", "link.test 83 0", "192.0.2.99 99 1",
                        "192.0.2.9 9 1"));
      EXPECT_EQ(service()->GetLinkCount(), 3);
      EXPECT_THAT(TextFrom(&IZOTarvelLBSService::GetName), AnyOf("a", "b", "c"));
      _ZOTarvelMsgStatInfo info;
      service()->GetMsgStatInfo(&info);
      service()->Update(kEMAddressFamilyAny, round % 20 == thread);
      SetCallbacks();
      if (round % 50 == thread) Response();
    }
  };
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) threads.emplace_back(use, thread);
  threads.clear();
  EXPECT_THAT(TakeTold(), testing::StartsWith("200 "));
  object()->ReleaseLBSService();
  RunAllPostedToTheAgent();
  const std::string name = Cached("name");
  EXPECT_EQ(nlohmann::json::parse(Cached("lbs_rsp")).at("common").at("name"), name);
}

}  // namespace
}  // namespace zo_tarvel
