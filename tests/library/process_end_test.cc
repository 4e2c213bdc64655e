// Every way in which a client's process ends or unloads the library. Each client is a child that
// tells its steps on standard output.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "base/log/log.h"
#include "base/thread/task_thread.h"
#include "tarvel/environment/environment_manager_storage.h"
#include "tests/support/child_process.h"
#include "tests/support/event.h"
#include "tests/support/test_settings.h"

namespace zo_tarvel {
namespace {

using namespace test_support;
using namespace testing;

// The business is the default one; its digest is that of md5sum.
const std::string kLogPath = std::string(TestSettings().appdata_path) +
                             "/tarvel_comp/d6f07bc61ae1384e48a8edaab463328b/tarvel_comp.log";
constexpr char kLastLine[] = "------------------- exit -------------------\n";

// Unbuffered, and safe at any moment of the process's end.
void Tell(const char* step) { dprintf(STDOUT_FILENO, "%s\n", step); }

// Its thread tells when it ends.
zo_base::TaskThread* StartWithService(
    const _ZOTarvelEnvironmentSettings& settings = TestSettings()) {
  StartTarvelEnvironment(settings);
  IZOTarvelLBSService* const hosted = GetTarvelObject(1)->GetLBSService();
  hosted->Init({});
  auto* const service = dynamic_cast<zo_base::TaskThread*>(hosted);
  service->Connect<>(zo_base::SIG_ThreadEnd, [] { Tell("thread ended"); });
  Tell("started");
  return service;
}

// Forks children in the middle of the work of another thread, which use the library. `id` is what a
// start of theirs returns.
[[maybe_unused]] void ForkChildren(int id, const std::function<void()>& work) {
  std::atomic<bool> done{false};
  std::thread worker([&] {
    while (!done) work();
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_GOOD_CHILD([id] {
      ZO_LOG << "child";
      EXPECT_EQ(StartTarvelEnvironment(TestSettings()), id);
      EXPECT_EQ(GetTarvelObject(1) != nullptr, id != 0);
      ExitTarvelEnvironment(1);
      return 0;
    });
  }
  done = true;
  worker.join();
}

// The log function is called with the token's lock held, while the service's thread waits for it.
void ExitInTheLogFunction() {
  auto settings = TestSettings();
  settings.custom_log = [](const char* line) {
    if (std::string(line).ends_with("the last line\n")) std::exit(0);
  };
  auto* const service = StartWithService(settings);
  GetConfig()->Connect<const std::string>(SIG_BusinessTokenChanged, [service](const auto&) {
    static Event waits;
    service->PostTask([config = GetConfig()] { waits.Set(), config->GetBusinessToken(); });
    EXPECT_TRUE(waits.Await());
    ZO_LOG << "the last line";
  });
  GetTarvelObject(1)->SetBusinessToken("token");
}

void ExitInACallbackThatAnExitWaitsFor() {
  static Event entered;
  StartWithService()->PostTask([storage = GetStorage()] {
    entered.Set();
    while (!storage->gate.exit_in_progress()) std::this_thread::yield();
    std::exit(0);
  });
  EXPECT_TRUE(entered.Await());
  ExitTarvelEnvironment(1);
  pause();
}

TEST(ProcessEndTest, StopsTheEnvironmentAndEndsRegularly) {
  const struct {
    const char* name;
    std::function<void()> live;
    const char* steps;
    bool logs;  // False where that may come too late.
  } rows[] = {
    {"two lives, two starts and return",
     [] {
       StartWithService();
       ExitTarvelEnvironment(1);
       StartWithService();
       StartTarvelEnvironment(TestSettings());
     },
     "started\nthread ended\nstarted\nclient returns\nthread ended\n", true},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The sanitizers don't support a fork in a process with several threads.
    {"children forked off while it logs",
     [] { StartWithService(), ForkChildren(0, [] { ZO_LOG << "parent"; }); },
     "started\nclient returns\nthread ended\n", true},
    {"children forked off while exports are called",
     [] {
       ForkChildren(1, [] {
         ExitTarvelEnvironment(GetTarvelObject(1) == nullptr ? 1 : 0);
         TarvelExceptionDataToJsonString({});
       });
     },
     "client returns\n", false},
#endif
    {"exit in the log function", ExitInTheLogFunction, "started\n", false},
    {"exit on another thread while exports are called",
     [] {
       StartWithService();
       const auto settings = TestSettings();  // What makes them is destroyed during the exit.
       std::thread([] { std::exit(0); }).detach();
       while (true) StartTarvelEnvironment(settings), ExitTarvelEnvironment(0);
     },
     "started\nthread ended\n", false},
    // The service's own thread calls exit(), so nobody can wait for its end.
    {"exit in a callback", [] { StartWithService()->PostTask([] { std::exit(0); }), pause(); },
     "started\n", true},
    {"exit in a callback that an exit waits for", ExitInACallbackThatAnExitWaitsFor, "started\n",
     false},
  };
  const TempDirectory directory;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(kLogPath);
    EXPECT_GOOD_CHILD([&] {
      dup2(creat((directory / row.name).c_str(), 0600), STDOUT_FILENO);
      row.live();
      Tell("client returns");
      return 0;
    });
    EXPECT_EQ(ReadFile(directory / row.name), row.steps);
    if (!row.logs) continue;
    EXPECT_THAT(ReadFile(kLogPath), AllOf(HasSubstr("by goalkeeper true"), EndsWith(kLastLine)));
  }
}

TEST(ProcessEndTest, AnUnloadEndsTheEnvironmentAndItsThreads) {
  std::filesystem::remove(kLogPath);
  EXPECT_GOOD_CHILD([] {
    static decltype(&ExitTarvelEnvironment) exit;
    static Event ended;
    auto settings = TestSettings();
    settings.business_token[0] = 't';
    for (const bool in_callback : {false, true}) {
      void* const library = dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
      const auto find = [library]<class F>(F&, const char* mangled) {
        return reinterpret_cast<F*>(dlsym(library, mangled));
      };
      exit = find(ExitTarvelEnvironment, "_ZN9zo_tarvel21ExitTarvelEnvironmentEi");
      find(StartTarvelEnvironment,
           "_ZN9zo_tarvel22StartTarvelEnvironmentERKNS_28_ZOTarvelEnvironmentSettingsE")(settings);
      auto* const service =
          find(GetTarvelObject, "_ZN9zo_tarvel15GetTarvelObjectEi")(1)->GetLBSService();
      const auto end = [](void*, char*) {
        exit(1);
        ended.Set();
        for (int i = 0; i < 100'000; ++i) exit(1);  // The unload waits for this thread.
      };
      if (in_callback) service->SetAccIDGetter(end, nullptr);
      service->Init({});
      EXPECT_TRUE(!in_callback || ended.Await());
      dlclose(library);
      EXPECT_EQ(dlopen(LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
    }
    return 0;
  });
  EXPECT_THAT(ReadFile(kLogPath), EndsWith(kLastLine));
}

}  // namespace
}  // namespace zo_tarvel
