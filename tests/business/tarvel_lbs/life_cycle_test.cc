#include <sys/resource.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <thread>

#include "base/thread/library_call.h"
#include "tests/support/child_process.h"
#include "tests/support/lbs_client.h"

// Releases, exits, forks, many threads at once, and calls out of the client's log function.
namespace zo_tarvel {
namespace {

using namespace test_support;

TEST_F(LBSServiceTest, AReleaseAwaitsTheClientAndLeavesNothingBehind) {
  const auto anybody_is_connected = [] {
    return GetConfig()->HasConnections(SIG_NetworkChanged) ||
           GetConfig()->HasConnections(SIG_BusinessTokenChanged);
  };
  GetConfig()->Disconnect(SIG_NetworkChanged);  // Of the agent.
  BeginUpdate();
  EXPECT_TRUE(anybody_is_connected());
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
  told_.TakeAll();

  static std::atomic<bool> left;
  left = false;
  const auto take_time = [](void* entered, const RequestErrorRecord*) {
    static_cast<Event*>(entered)->Set();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    left = true;
  };
  Init();
  Event entered;
  service()->SetRequestErrorCollector(take_time, &entered);
  service()->Update(kEMAddressFamilyAny, true);
  EXPECT_TRUE(entered.Await());
  object()->ReleaseLBSService();
  EXPECT_TRUE(left);

  RecordedLog::Clear();
  may_answer_.Set();
  EXPECT_TRUE(RecordedLog::Await("[lbs] Check response strong_this == nullptr"));
  Event done;  // A callback that is running holds the service strongly.
  MultipleURLHttpRequest request;
  request.result_callback = [&](auto&&...) { done.Set(); };
  environment_->InvokeHttpRequest(request, true);
  EXPECT_TRUE(done.Await());
  EXPECT_FALSE(anybody_is_connected());
  EXPECT_THAT(told_.TakeAll(), testing::IsEmpty());
}

TEST_F(LBSServiceTest, AnExitEndsTheWaitForAnUpdate) {
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

// The fork happens during any operation, and during an update that never ends in the child.
TEST_F(LBSServiceTest, NoOperationHangsInAForkedChild) {
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
      // Not exit(): leak checkers would find what the parent's environment has left here.
      _exit(HasFailure() ? 1 : 0);
      return 0;
    });
  }
}
#endif

TEST_F(LBSServiceTest, ServesManyThreadsWhileAnswersComeIn) {
  Serve({Answer("a"), Answer("b", R"("ttl":10,)"), Answer("c", R"("zebdl":"c",)")});
  Init();
  Update();
  const auto use = [this](int thread) {
    for (int round = 0; round < 200; ++round) {
      EXPECT_THAT(NextLink(static_cast<EMAddressFamily>(round % 3)),
                  testing::AnyOf("192.0.2.1 81 1", "[2001:db8::2] 82 2", "link.test 83 0",
                                 "192.0.2.99 99 1", "192.0.2.9 9 1"));
      EXPECT_EQ(service()->GetLinkCount(), 3);
      EXPECT_THAT(Name(), testing::AnyOf("a", "b", "c"));
      UseAll(object(), service());
      service()->Update(kEMAddressFamilyAny, round % 20 == thread);
      SetCallbacks();
      if (round % 50 == thread) Response();
    }
  };
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) threads.emplace_back(use, thread);
  threads.clear();
  EXPECT_THAT(Update(), testing::StartsWith("200 "));
  object()->ReleaseLBSService();
  const std::string rsp = Cache().at("lbs_rsp");
  EXPECT_THAT(rsp, testing::HasSubstr(R"("name":")" + Cache().at("name").get<std::string>()));
}

// --- In the log function ---

// Acts once, at the line of this number or at the first allowed one after it: no other thread of
// the client may be in a call while the library frees what that call uses.
struct Life {
  std::function<void()> act;
  int act_at = 0;
  const std::thread::id client = std::this_thread::get_id();
  std::atomic<int> lines{0};
  std::mutex call;  // Held by the client in a call, and by another thread that acts.
  std::atomic<bool> has_acted{false};
  std::atomic<bool> is_over{false};  // All put-off calls have been carried out.
};
std::atomic<Life*> life{nullptr};

void ActAtItsLine(const char*) {
  Life* const now = life;
  if (now == nullptr || ++now->lines < now->act_at) return;
  std::unique_lock<std::mutex> no_call(now->call, std::defer_lock);
  if (std::this_thread::get_id() != now->client && !no_call.try_lock()) return;
  if (now->has_acted.exchange(true)) return;
  now->act();
  zo_base::RunAfterLibraryCall([now] { now->is_over = true; });
}

class LogFunctionTest : public LBSServiceTest {
 protected:
  LogFunctionTest() {
    environment_.reset();
    environment_settings_.custom_log = ActAtItsLine;
    std::strcpy(environment_settings_.business_token, "t");
    Serve({Answer("fresh")});
  }

  // One call of the client, unless the environment is down. Waits until its consequences have been
  // logged, so that `act` meets the lines of every thread.
  void Call(const std::function<void()>& call) {
    {
      const std::lock_guard lock(life.load()->call);
      while (life.load()->has_acted && !life.load()->is_over) std::this_thread::yield();
      if (GetTarvelObject(1) != nullptr) call();
    }
    for (int lines = -1; lines != life.load()->lines;) {
      lines = life.load()->lines;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  // Returns whether there was such a line.
  bool Live(int act_at, const std::function<void()>& act) {
    life = &lives_.emplace_back();
    life.load()->act = act;
    life.load()->act_at = act_at;
    StartTarvelEnvironment(environment_settings_);
    Call([this] { service()->SetAccIDGetter([](void*, char* id) { *id = 'i'; }, nullptr); });
    Call([this] { service()->Init(settings_); });
    Call([this] { service()->Update(kEMAddressFamilyAny, true); });
    Call([this] { Response(); });
    Call([this] { object()->NotifyNetworkChanged(zo_net::kAddressFamilyIPv6); });
    Call([this] { object()->SetBusinessToken("u"); });
    for (int i = 0; i < 4; ++i) Call([this] { NextLink(); });
    Call([this] { service()->Update(kEMAddressFamilyAny, false); });
    Call([this] { object()->ReleaseLBSService(); });
    while (GetStorage()->started) ExitTarvelEnvironment(1);
    return life.load()->has_acted;
  }

  std::deque<Life> lives_;  // A thread that ended its own environment may still log.
};

TEST_F(LogFunctionTest, MayCallTheLibraryOutOfEveryLine) {
  const std::function<void()> exit_once = [] { ExitTarvelEnvironment(1); };
  const std::function<void()> do_all_else = [this] {
    EXPECT_EQ(StartTarvelEnvironment(environment_settings_), 0);
    IZOTarvelObject* const object = GetTarvelObject(1);
    if (object == nullptr) return;
    if (IZOTarvelLBSService* const service = object->GetLBSService()) {
      UseAll(object, service);
      service->Update(kEMAddressFamilyAny, true);
      TextFrom(&IZOTarvelLBSService::GetLBSResponse, service, false);
      std::thread([service] { service->GetCurrentLinkAddress(nullptr, nullptr, nullptr); }).join();
    }
    object->SetBusinessToken("v");
    object->ReleaseLBSService();
  };
  for (const std::function<void()>& act : {exit_once, do_all_else}) {
    int line = 1;
    while (Live(line, act)) ++line;
    EXPECT_GT(line, 80);
  }
  life = nullptr;
}

// The log function forks in the middle of a start or an exit. Both processes carry out the rest.
TEST(ProcessEndTest, ComesInAChildForkedInStartOrExit) {
  for (const char* const line : {"- start -", "stop all tarvel obj begin", "- exit -"}) {
    SCOPED_TRACE(line);
    EXPECT_GOOD_CHILD([line] {
      static const char* fork_at;
      static pid_t child = -1;
      fork_at = line;
      auto settings = TestSettings();
      settings.custom_log = [](const char* text) {
        if (child == -1 && std::strstr(text, fork_at) != nullptr) child = fork();
        if (child == 0) alarm(10);
      };
      const int id = StartTarvelEnvironment(settings);
      if (child == 0) _exit(id);
      ExitTarvelEnvironment(id);
      int status = 0;
      if (child == 0) _exit(0);
      return waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
    });
  }
}

// Another thread of the client is in an operation, and continues when the library is down.
TEST(ProcessEndTest, LeavesOperationsOfOtherThreadsAlone) {
  EXPECT_GOOD_CHILD([] {
    static std::atomic<bool> has_begun{false}, is_down{false}, has_ended{false};
    auto settings = TestSettings();
    settings.custom_log = [](const char* line) {
      if (std::strstr(line, "Call Update") != nullptr) {
        has_begun = true;
        while (!is_down) std::this_thread::yield();
      } else if (std::strstr(line, " exit ---") != nullptr) {
        is_down = true;
        while (!has_ended) std::this_thread::yield();
      }
    };
    StartTarvelEnvironment(settings);
    std::thread([service = GetTarvelObject(1)->GetLBSService()] {
      service->Init({});
      service->Update(kEMAddressFamilyAny, false);
      service->GetLinkAddress(nullptr, nullptr, nullptr);
      has_ended = true;
    }).detach();
    while (!has_begun) std::this_thread::yield();
    return 0;
  });
}

}  // namespace
}  // namespace zo_tarvel
