#include <sys/resource.h>
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
    ServeHeld("networkType=0");
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
};

TEST_F(LBSLifeCycleTest, ReleasesLeaveNothingBehind) {
  BeginUpdate();
  EXPECT_TRUE(AnybodyIsConnected());
  settings_.addr_family = kEMAddressFamilyIPv6;  // The others of these updates are answered.
  for (int cycle = 0; cycle < 50; ++cycle) {
    object()->ReleaseLBSService();
    SetCallbacks();
    EXPECT_TRUE(service()->Init(settings_));  // The thread may not have begun yet.
    if (cycle % 2 == 0) RunAllPosted();
    service()->Update(kEMAddressFamilyAny, cycle % 3 == 0);
    object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6);
  }
  object()->ReleaseLBSService();
  RunAllPostedToTheAgent();
  EXPECT_FALSE(AnybodyIsConnected());
  told_.TakeAll();
  RecordedLog::Clear();
  may_answer_.Set();
  EXPECT_TRUE(RecordedLog::Await("[lbs] Check response strong_this == nullptr"));
  Serve({Answer("fresh")});
  Init();
  EXPECT_EQ(Update(), "200 " + Answer("fresh"));
  EXPECT_THAT(told_.TakeAll(), testing::IsEmpty());
}

TEST_F(LBSLifeCycleTest, AnExitEndsTheWaitForAnUpdate) {
  BeginUpdate();
  RunAllPosted();  // The task that sent the request owns the service no longer.
  IZOTarvelLBSService* const waited_for = service();
  const std::weak_ptr<zo_base::BaseThread> owners =
      dynamic_cast<zo_base::BaseThread&>(*waited_for).shared_from_this<zo_base::BaseThread>();
  const auto owners_before = owners.use_count();
  std::thread waiting(
      [waited_for] { TextFrom(&IZOTarvelLBSService::GetLBSResponse, waited_for, false); });
  while (owners.use_count() <= owners_before) std::this_thread::yield();  // Not waiting yet.
  environment_->Exit();
  waiting.join();
  may_answer_.Set();
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

// The fork happens during any operation, and during an update that never ends in the child.
TEST_F(LBSLifeCycleTest, NoOperationHangsInAForkedChild) {
  BeginUpdate();
  IZOTarvelObject* const object = this->object();
  IZOTarvelLBSService* const service = this->service();
  std::jthread busy([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) UseAll(object, service);
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_GOOD_CHILD([&]() -> int {
      alarm(10);
      UseAll(object, service);
      TextFrom(&IZOTarvelLBSService::GetLBSResponse, service, false);
      object->ReleaseLBSService();
      _exit(0);
    });
  }
  may_answer_.Set();
}

#ifndef __SANITIZE_THREAD__  // TSan supports no threads in a child of a process with threads.
TEST_F(LBSServiceTest, NeverHangsWithoutThreadsAndRecoversWithThem) {
  environment_.reset();
  std::filesystem::permissions(directory_.path(), std::filesystem::perms::all);
  for (rlim_t threads = 1; threads <= 6; ++threads) {  // The main thread and 0 to 5 more.
    const std::string fresh = Answer(std::to_string(threads));
    Serve({fresh});
    EXPECT_GOOD_CHILD([&] {
      rlimit limit{threads, 100};  // Counted for this user alone, who isn't root.
      if (setrlimit(RLIMIT_NPROC, &limit) != 0 || setuid(54'321) != 0) return kNotPermitted;
      Restart();
      service()->Init(settings_);
      const auto updated = [this] {
        service()->Update(kEMAddressFamilyAny, true);
        return Response();
      };
      EXPECT_TRUE(updated() != fresh || threads > 1);
      limit.rlim_cur = limit.rlim_max;
      EXPECT_EQ(setrlimit(RLIMIT_NPROC, &limit), 0);
      EXPECT_EQ(updated(), fresh);
      environment_.reset();
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
      EXPECT_THAT(Name(), AnyOf("a", "b", "c"));
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
  const std::string rsp = Cache().at("lbs_rsp");
  EXPECT_THAT(rsp, testing::HasSubstr(R"("name":")" + Cache().at("name").get<std::string>()));
}

}  // namespace
}  // namespace zo_tarvel
