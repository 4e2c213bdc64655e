// A client: starts an environment with a service whose thread tells when it begins and ends, and
// ends the way that is named. Tells each step in one line on standard output.
#include <sys/wait.h>
#include <tarvel/tarvel.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "base/log/log.h"
#include "base/thread/task_thread.h"
#include "tarvel/environment/environment_manager_storage.h"

namespace zo_tarvel {
namespace {

// Unbuffered and safe at any moment of the process's end.
void Tell(const std::string& step) {
  const std::string line = step + "\n";
  if (write(STDOUT_FILENO, line.data(), line.size()) < 0) std::_Exit(9);
}

void Await(const std::atomic<bool>& flag) {
  while (!flag) std::this_thread::yield();
}

// The test names the directory of the log. HTTPDNS is off: a request of its own may be under way at
// the end, and leaves its helper behind.
_ZOTarvelEnvironmentSettings SettingsOfTest() {
  _ZOTarvelEnvironmentSettings settings;
  settings.enable_httpdns = -1;
  std::snprintf(settings.log_path, sizeof settings.log_path, "%s", std::getenv("TEST_LOG_PATH"));
  return settings;
}

// For the exit in the log function.
std::atomic<bool> log_function_exits{false};

zo_base::TaskThread* StartWithService(const std::string& how) {
  auto settings = SettingsOfTest();
  if (how == "exit in the log function") {
    settings.custom_log = [](const char*) {
      if (log_function_exits.exchange(false)) std::exit(0);
    };
  }
  StartTarvelEnvironment(settings);
  IZOTarvelLBSService* const hosted = GetTarvelObject(1)->GetLBSService();
  hosted->Init({});
  auto* const service = dynamic_cast<zo_base::TaskThread*>(hosted);
  // After an exit in a callback the thread ends at a moment of its own.
  if (how != "environment exit in a callback") {
    service->Connect<>(zo_base::SIG_ThreadEnd, [] { Tell("thread ended"); });
  }
  Tell("started");
  return service;
}

// Forks children in the middle of the work of another thread, which use the library. `id` is what a
// start of theirs returns.
template <class Work>
void ForkChildren(int id, Work work) {
  std::atomic<bool> done{false};
  std::thread worker([&done, work] {
    while (!done) work();
  });
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      ZO_LOG << "child";
      const bool expected = StartTarvelEnvironment(SettingsOfTest()) == id &&
                            (GetTarvelObject(1) != nullptr) == (id != 0);
      ExitTarvelEnvironment(1);
      std::exit(expected ? 0 : 1);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) Tell("a child failed");
  }
  done = true;
  worker.join();
}

// The log function is called with the token's lock held, while the service's thread waits for it.
void EndInTheLogFunction(zo_base::TaskThread* service) {
  GetConfig()->Connect<const std::string>(SIG_BusinessTokenChanged, [service](const auto&) {
    std::atomic<bool> waits{false};
    service->PostTask([&waits] {
      waits = true;
      GetConfig()->GetBusinessToken();
    });
    Await(waits);
    log_function_exits = true;
    ZO_LOG << "the last line";
  });
  GetTarvelObject(1)->SetBusinessToken("token");
}

}  // namespace

// What the image that is loaded and unloaded shows.
extern "C" __attribute__((visibility("default"))) void RunClient(const char* ending) {
  const std::string how = ending;
  std::atomic<bool> done{false};
  zo_base::TaskThread* const service = StartWithService(how);
  if (how == "regular exit") {
    ExitTarvelEnvironment(1);
  } else if (how == "two lives, two starts and return") {
    ExitTarvelEnvironment(1);
    StartWithService(how);
    StartTarvelEnvironment(SettingsOfTest());
  } else if (how == "exit on another thread") {
    std::thread([] { std::exit(0); }).detach();
    pause();
  } else if (how == "exit on another thread while exports are called") {
    std::thread([] { std::exit(0); }).detach();
    while (true) {
      StartTarvelEnvironment(SettingsOfTest());
      ExitTarvelEnvironment(0);
    }
  } else if (how == "exit in a callback") {
    service->PostTask([] { std::exit(0); });
    pause();
  } else if (how == "exit in a callback that an exit waits for") {
    service->PostTask([&done, storage = GetStorage()] {
      done = true;
      while (!storage->gate.exit_in_progress()) std::this_thread::yield();
      std::exit(0);
    });
    Await(done);
    ExitTarvelEnvironment(1);
    pause();
  } else if (how == "environment exit in a callback") {
    service->PostTask([&done] {
      ExitTarvelEnvironment(1);
      Tell("environment down");
      done = true;
    });
    Await(done);
  } else if (how == "children forked off while it logs") {
    ForkChildren(0, [] { ZO_LOG << "parent"; });
  } else if (how == "children forked off while exports are called") {
    ExitTarvelEnvironment(1);
    ForkChildren(1, [] {
      ExitTarvelEnvironment(GetTarvelObject(1) == nullptr ? 1 : 0);
      TarvelExceptionDataToJsonString({});
    });
  } else if (how == "exit in the log function") {
    EndInTheLogFunction(service);
  } else if (how != "return") {
    Tell("unknown ending");
  }
  Tell("client returns");
}

}  // namespace zo_tarvel

int main(int, char** argv) { zo_tarvel::RunClient(argv[1]); }
