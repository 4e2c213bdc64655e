#include <deque>
#include <functional>
#include <thread>

#include "base/thread/library_call.h"
#include "tests/support/child_process.h"
#include "tests/support/lbs_client.h"

// The client's log function calls the library, from every line that a short life of it logs.
namespace zo_tarvel {
namespace {

using namespace test_support;

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
  const auto ask_on_another_thread = [] {
    IZOTarvelObject* const object = GetTarvelObject(1);
    if (object == nullptr) return;
    std::thread([service = object->GetLBSService()] {
      if (service == nullptr) return;
      service->GetLinkCount();
      service->GetCurrentLinkAddress(nullptr, nullptr, nullptr);
    }).join();
  };
  const auto do_all_else = [this] {
    EXPECT_EQ(StartTarvelEnvironment(environment_settings_), 0);
    IZOTarvelObject* const object = GetTarvelObject(1);
    if (object == nullptr) return;
    if (IZOTarvelLBSService* const service = object->GetLBSService()) {
      UseAll(object, service);
      service->Update(kEMAddressFamilyAny, true);
      TextFrom(&IZOTarvelLBSService::GetLBSResponse, service, false);
    }
    object->SetBusinessToken("v");
    object->ReleaseLBSService();
  };
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"exits", [] { ExitTarvelEnvironment(1); }},
      {"waits for another thread", ask_on_another_thread},
      {"does all else", do_all_else}};
  for (const auto& [name, act] : rows) {
    SCOPED_TRACE(name);
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
