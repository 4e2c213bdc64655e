#include "tarvel/environment/environment_manager.h"

#include <chrono>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "base/log/log.h"
#include "base/object/object.h"
#include "base/object/weakly.h"
#include "base/process/at_exit_manager.h"
#include "base/process/clock.h"
#include "base/process/filesystem.h"
#include "base/process/forked_child.h"
#include "base/process/no_destructor.h"
#include "base/thread/native_thread.h"
#include "tarvel/environment/goalkeeper.h"
#include "tarvel/environment/tarvel_object_impl.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::HttpClientEx;
using zo_base::MutexLock;
using FileLog = zo_base::TQLogImpl<zo_base::TarvelObject>;
using AtExitManager = zo_base::_AtExitManager<zo_base::TarvelObject>;

constexpr std::int32_t kFirstObjectId = 1;

// Keeps the library's singletons alive while an environment is up. Never destroyed: the process may
// end on another thread in the middle of an exit. Used under `start_lock`.
std::shared_ptr<AtExitManager>& HeldAtExitManager() {
  static zo_base::NoDestructor<std::shared_ptr<AtExitManager>> at_exit_manager;
  return *at_exit_manager;
}

// Whether the client has another thread, once all of the library's have been joined. The system may
// still list a joined thread for a moment.
bool OtherThreadsRun() {
  constexpr int kLooks = 20;
  for (int look = 0; look < kLooks; ++look) {
    std::error_code failed;
    const zo_base::filesystem::directory_iterator threads("/proc/self/task", failed);
    if (!failed && std::distance(begin(threads), end(threads)) == 1) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// The objects and their services.
using Hosted = std::vector<std::shared_ptr<void>>;

Hosted HostedBy(TarvelObjectTable& objects) {
  Hosted hosted;
  objects.ForEach([&hosted](std::int32_t, const std::shared_ptr<IZOTarvelObject>& object) {
    const auto impl = zo_base::DynamicPointerCast<ZOTarvelObjectImpl>(object);
    if (impl) hosted.push_back(impl->LBSService());
    hosted.push_back(object);
  });
  return hosted;
}

// Other threads of the client may use `hosted` until the process has really ended, so it is never
// freed. Without such threads it is freed: the image may be about to be unloaded.
void KeepForOtherThreads(Hosted hosted) {
  if (hosted.empty() || !OtherThreadsRun()) return;
  static zo_base::NoDestructor<std::vector<Hosted>> forever;
  forever->push_back(std::move(hosted));
}

// A moment of the exit, on both clocks.
struct ExitMoment {
  const std::int64_t steady_ms = zo_base::SteadyMilliseconds();
  const std::string wall_clock = zo_base::LogTimeNow();
};

// Returns false in a child that the log function has forked. There the rest of the exit could wait
// for locks that other threads held.
bool LogOfExit(const char* line) {
  ZO_LOG << line;
  return !zo_base::InForkedChild();
}

// Returns the previous client.
std::shared_ptr<HttpClientEx> ReplaceHttpClient(EnvironmentManagerStorage& storage,
                                                std::shared_ptr<HttpClientEx> client) {
  MutexLock lock(storage.published_lock);
  storage.http_client.swap(client);
  return client;
}

}  // namespace

int EnvironmentManager::StartOrCount(const _ZOTarvelEnvironmentSettings& settings) {
  const _ZOTarvelEnvironmentSettings copy = settings;
  storage_.once.Call([&] { Start(copy); });
  ++storage_.start_count;
  const auto object =
      zo_base::DynamicPointerCast<ZOTarvelObjectImpl>(storage_.objects.Find(kFirstObjectId));
  if (object == nullptr) __builtin_trap();  // No error code exists for a start without its object.
  return object->id();
}

void EnvironmentManager::Start(const _ZOTarvelEnvironmentSettings& settings) {
  zo_base::SetAtWork(true);
  zo_base::JoinFinishedThreads();  // Those that ended their own environment.
  if (HeldAtExitManager() == nullptr) {
    HeldAtExitManager() = zo_base::GetAtExitManager<zo_base::TarvelObject>().first;
  }
  if (storage_.config == nullptr) storage_.config = std::make_shared<_EnvironmentConfig>();
  storage_.config->Load(settings);
  {
    MutexLock lock(storage_.published_lock);
    storage_.config_weak = storage_.config;
  }
  SetUpLogging(settings.custom_log);
  ZO_LOG << "\r\n------------------- start -------------------";
  ZO_LOG << storage_.config->FormatBanner();
  StartHttpClient();
  StartHttpAgent();
  GetGoalkeeper().Arm();
  storage_.started = true;
  CreateObject();
}

void EnvironmentManager::SetUpLogging(zo_base::TarvelCustomLog::Function custom_log) {
  if (custom_log != nullptr) {
    MutexLock lock(storage_.custom_log_lock);
    storage_.custom_log = std::make_shared<zo_base::TarvelCustomLog>(custom_log);
    return;
  }
  const auto logger = FileLog::GetHeldInstance();
  if (logger == nullptr) return;
  if (logger->Open(storage_.config->log_path() + "tarvel_comp.log", 0, 0) == zo_base::kLogReady) {
    logger->SetLevel(zo_base::kLogApp);
  }
}

// Without a thread the environment comes up all the same. Each request asks for the thread again.
void EnvironmentManager::StartHttpClient() {
  const auto client = std::make_shared<HttpClientEx>();
  client->Connect<>(zo_base::SIG_InternalBegin, [raw = client.get()] { raw->init(); });
  storage_.config->Connect<zo_net::AddressFamily>(
      SIG_NetworkChanged, zo_base::Weakly(client, [](HttpClientEx& living, zo_net::AddressFamily) {
        living.RetireConnections();
      }));
  ReplaceHttpClient(storage_, client);
  const std::string failure = client->StartIfPossible();
  if (!failure.empty()) ZO_LOG << "http client thread failed:" << failure;
}

void EnvironmentManager::ReleaseHttpClient() {
  if (!LogOfExit("http client release begin")) return;
  if (const auto client = ReplaceHttpClient(storage_, nullptr)) {
    client->Stop();
    client->ReleaseRequestor();
  }
  ZO_LOG << "http client release end";
}

void EnvironmentManager::StartHttpAgent() {
  storage_.http_agent = std::make_shared<HttpAgent>();
  storage_.config->SetHttpAgent(storage_.http_agent);
  storage_.http_agent->SetEnvironmentConfig(storage_.config);
  storage_.http_agent->Init();
}

void EnvironmentManager::ReleaseHttpAgent() {
  if (!LogOfExit("http agent release begin")) return;
  if (storage_.http_agent) {
    storage_.http_agent->Uninit();
    storage_.http_agent.reset();
  }
  ZO_LOG << "http agent release end";
}

std::int32_t EnvironmentManager::CreateObject() {
  const std::int32_t id = ++storage_.next_object_id;
  auto object = std::make_shared<ZOTarvelObjectImpl>(id);
  object->SetEnvironmentConfig(storage_.config);
  object->Init();
  storage_.objects.Insert(id, std::move(object));
  return id;
}

// A custom log function survives the exit, so there is no file to close.
void EnvironmentManager::CloseLog() {
  {
    MutexLock lock(storage_.custom_log_lock);
    if (storage_.custom_log) return;
  }
  if (const auto logger = FileLog::GetHeldInstance()) logger->Close();
}

void EnvironmentManager::RemoveObject(std::int32_t id) {
  if (id == 0) return;
  const auto object = zo_base::DynamicPointerCast<ZOTarvelObjectImpl>(storage_.objects.Find(id));
  if (object == nullptr) return;
  storage_.objects.Erase(id);
  object->Stop();
  object->Release();
}

void EnvironmentManager::ExitEnvironment(const ExitRequest& request) {
  if (request.ends_process) storage_.start_count = 1;
  RemoveObject(request.id);
  if (--storage_.start_count >= 1) return;
  if (const auto by_process_exit = GetGoalkeeper().Dismiss()) {
    const bool by_handler = *by_process_exit || request.ends_process;
    ZO_LOG << "do stop by goalkeeper " << (by_handler ? "true" : "false");
  }
  Stop();
  if (zo_base::InForkedChild()) return;
  Hosted hosted = request.ends_process ? HostedBy(storage_.objects) : Hosted();
  Exit();
  KeepForOtherThreads(std::move(hosted));  // The library's own threads have ended only now.
}

void EnvironmentManager::Stop() {
  ZO_LOG << "stop environmen begin";
  if (!LogOfExit("stop all tarvel obj begin")) return;
  storage_.objects.ForEach(StopObject);
  ZO_LOG << "stop all tarvel obj end";
  if (!LogOfExit("stop http agent begin")) return;
  if (storage_.http_agent) {
    storage_.http_agent->Uninit();
    ZO_LOG << "stop http agent end";
  }
  if (!LogOfExit("stop http client begin")) return;
  if (const auto client = GetHttpClient()) client->Stop();
  ZO_LOG << "stop http client end";
  ZO_LOG << "stop environmen end";
}

void EnvironmentManager::Exit() {
  if (storage_.config) storage_.config->SetExitFlag(true);
  const ExitMoment begin;
  if (!LogOfExit("all tarvel_object release begin")) return;
  storage_.objects.ForEach(ReleaseObject);
  storage_.objects.Clear();
  ZO_LOG << "all tarvel_object release end";
  ReleaseHttpAgent();
  if (!LogOfExit("environment release begin")) return;
  storage_.config.reset();
  ZO_LOG << "environment release end";
  ReleaseHttpClient();
  if (zo_base::InForkedChild()) return;
  const ExitMoment end;
  ZO_LOG << "exit time spent:" << end.steady_ms - begin.steady_ms << "ms from " << begin.wall_clock
         << " to " << end.wall_clock;
  ZO_LOG << "\r\n------------------- exit -------------------";
  CloseLog();
  HeldAtExitManager().reset();
  storage_.next_object_id = 0;
  storage_.once.Reset();
  storage_.started = false;
  zo_base::SetAtWork(false);
}

}  // namespace zo_tarvel
