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
#include "tarvel/environment/environment_manager_storage.h"
#include "tests/support/fake_lbs_service.h"

namespace {

// Unbuffered and safe at any moment of the process's end.
void Tell(const std::string& step) {
  const std::string line = step + "\n";
  if (write(STDOUT_FILENO, line.data(), line.size()) < 0) std::_Exit(9);
}

// The test names the directory of the log. HTTPDNS is off: a request of its own may be under way at
// the end, and leaves its helper behind.
zo_tarvel::_ZOTarvelEnvironmentSettings SettingsOfTest() {
  zo_tarvel::_ZOTarvelEnvironmentSettings settings;
  settings.enable_httpdns = -1;
  std::snprintf(settings.log_path, sizeof settings.log_path, "%s", std::getenv("TEST_LOG_PATH"));
  return settings;
}

zo_tarvel::FakeLBSService* StartWithService(bool tell_end = true) {
  zo_tarvel::FakeLBSService::Install();
  const int id = zo_tarvel::StartTarvelEnvironment(SettingsOfTest());
  auto* object = zo_tarvel::GetTarvelObject(id);
  auto* service = dynamic_cast<zo_tarvel::FakeLBSService*>(object->GetLBSService());
  if (tell_end) service->Connect<>(zo_base::SIG_ThreadEnd, [] { Tell("thread ended"); });
  service->Init({});
  Tell("started");
  return service;
}

// Children that are forked off in the middle of the work of another thread, and use the library.
// `id` is what a start of theirs returns.
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
      const bool as_told = zo_tarvel::StartTarvelEnvironment(SettingsOfTest()) == id &&
                           (zo_tarvel::GetTarvelObject(1) != nullptr) == (id != 0);
      zo_tarvel::ExitTarvelEnvironment(1);
      std::exit(as_told ? 0 : 1);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) Tell("a child failed");
  }
  done = true;
  worker.join();
}

// The end of the process in the log function, which is called with the token's lock held, while the
// service's thread waits for that lock.
void EndInTheLogFunction() {
  static std::atomic<bool> armed{false};
  zo_tarvel::ExitTarvelEnvironment(1);
  auto settings = SettingsOfTest();
  settings.custom_log = [](const char*) {
    if (armed.exchange(false)) std::exit(0);
  };
  zo_tarvel::StartTarvelEnvironment(settings);
  auto* const service = zo_tarvel::FakeLBSService::StartOne();
  const auto wait_and_log = [service](const std::string&) {
    std::atomic<bool> waits{false};
    service->PostTask([&waits] {
      waits = true;
      zo_tarvel::GetConfig()->GetBusinessToken();
    });
    while (!waits) std::this_thread::yield();
    armed = true;
    ZO_LOG << "the last line";
  };
  zo_tarvel::GetConfig()->Connect<const std::string>(zo_tarvel::SIG_BusinessTokenChanged,
                                                     wait_and_log);
  zo_tarvel::GetTarvelObject(1)->SetBusinessToken("token");
}

[[noreturn]] void WaitForTheEnd() {
  while (true) pause();
}

}  // namespace

// What the image that is loaded and unloaded shows.
extern "C" __attribute__((visibility("default"))) void RunClient(const char* ending) {
  const std::string how = ending;
  // After an exit in a callback the thread ends at a moment of its own.
  zo_tarvel::FakeLBSService* service = StartWithService(how != "environment exit in a callback");
  if (how == "regular exit") {
    zo_tarvel::ExitTarvelEnvironment(1);
  } else if (how == "two lives and return") {
    zo_tarvel::ExitTarvelEnvironment(1);
    StartWithService();
  } else if (how == "two starts and return") {
    zo_tarvel::StartTarvelEnvironment(SettingsOfTest());
  } else if (how == "exit on another thread") {
    std::thread([] { std::exit(0); }).detach();
    WaitForTheEnd();
  } else if (how == "exit on another thread while exports are called") {
    std::thread([] { std::exit(0); }).detach();
    while (true) {
      zo_tarvel::StartTarvelEnvironment(SettingsOfTest());
      zo_tarvel::ExitTarvelEnvironment(0);
    }
  } else if (how == "exit in a callback") {
    service->PostTask([] { std::exit(0); });
    WaitForTheEnd();
  } else if (how == "exit in a callback that an exit waits for") {
    std::atomic<bool> entered{false};
    service->PostTask([&entered, storage = zo_tarvel::GetStorage()] {
      entered = true;
      while (!storage->gate.exit_in_progress()) std::this_thread::yield();
      std::exit(0);
    });
    while (!entered) std::this_thread::yield();
    zo_tarvel::ExitTarvelEnvironment(1);
    WaitForTheEnd();
  } else if (how == "environment exit in a callback") {
    std::atomic<bool> done{false};
    service->PostTask([&done] {
      zo_tarvel::ExitTarvelEnvironment(1);
      Tell("environment down");
      done = true;
    });
    while (!done) std::this_thread::yield();
  } else if (how == "children forked off while it logs") {
    ForkChildren(0, [] { ZO_LOG << "parent"; });
  } else if (how == "children forked off while exports are called") {
    zo_tarvel::ExitTarvelEnvironment(1);
    ForkChildren(1, [] {
      zo_tarvel::ExitTarvelEnvironment(zo_tarvel::GetTarvelObject(1) == nullptr ? 1 : 0);
      zo_tarvel::TarvelExceptionDataToJsonString({});
    });
  } else if (how == "exit in the log function") {
    EndInTheLogFunction();
  } else if (how != "return") {
    Tell("unknown ending");
  }
  Tell("client returns");
}

int main(int, char** argv) { RunClient(argv[1]); }
