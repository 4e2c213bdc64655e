#include "tarvel/environment/environment_manager.h"

#include <chrono>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "base/log/log.h"
#include "base/process/at_exit_manager.h"
#include "base/process/filesystem.h"
#include "base/process/forked_child.h"
#include "base/process/no_destructor.h"
#include "base/process/steady_time.h"
#include "base/thread/native_thread.h"
#include "base/thread/thread_info.h"
#include "tarvel/environment/goalkeeper.h"
#include "tarvel/environment/tarvel_object_impl.h"

namespace zo_tarvel {
namespace {

using WQBASE::network::HttpClientEx;
using zo_base::MutexLock;
using FileLog = zo_base::TQLogImpl<zo_base::TarvelObject>;
using AtExitManager = zo_base::_AtExitManager<zo_base::TarvelObject>;

constexpr std::int32_t kFirstObjectId = 1;
// How often a thread of the library that waits for the start lock looks whether an exit has begun.
constexpr std::chrono::milliseconds kStartLockPoll{1};

// Held while an environment is up; keeps the singletons of the library alive. Not destroyed, so
// that a process which ends on another thread does not pull it from under an exit. Used under
// start_lock.
std::shared_ptr<AtExitManager>& HeldAtExitManager() {
  static zo_base::NoDestructor<std::shared_ptr<AtExitManager>> held;
  return *held;
}

// Whether the client has another thread, once all of the library's have been joined. One that was
// joined may be seen a little longer.
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

// What the client's threads may be in the middle of, or call, until the process has really ended.
// Stopped, but then never freed. Without such threads nothing is kept: the image may be unloaded.
class KeptToTheEnd {
 public:
  explicit KeptToTheEnd(TarvelObjectTable& objects) {
    objects.ForEach([this](std::int32_t, const std::shared_ptr<IZOTarvelObject>& object) {
      objects_.push_back(object);
      const auto impl = std::dynamic_pointer_cast<ZOTarvelObjectImpl>(object);
      if (impl) services_.push_back(impl->LBSService());
    });
  }

 private:
  std::vector<std::shared_ptr<IZOTarvelObject>> objects_;
  std::vector<std::shared_ptr<IZOTarvelLBSService>> services_;
};

// A moment of the exit, on both clocks.
struct ExitMoment {
  const std::int64_t steady_ms = zo_base::SteadyMilliseconds();
  const std::string wall_clock = zo_base::LogTimeNow();
};

// Marks an exit as under way for the length of a scope.
// False in a child that was forked off out of this line. There the rest of the exit could wait for
// locks that other threads held.
bool LogOfExit(const char* line) {
  ZO_LOG << line;
  return !zo_base::InForkedChild();
}

class ExitInProgress {
 public:
  explicit ExitInProgress(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
  ~ExitInProgress() { flag_ = false; }
  ExitInProgress(const ExitInProgress&) = delete;
  ExitInProgress& operator=(const ExitInProgress&) = delete;

 private:
  std::atomic<bool>& flag_;
};

// Gives the client that was there before.
std::shared_ptr<HttpClientEx> ReplaceHttpClient(EnvironmentManagerStorage& storage,
                                                std::shared_ptr<HttpClientEx> client) {
  MutexLock lock(storage.published_lock);
  storage.http_client.swap(client);
  return client;
}

// Waits for the start lock. False when the calling thread must not: a thread of the library while
// another thread is in an exit, which may be waiting for it to end; and a thread that is in the
// middle of an exit, which has called back into the client.
bool LockForStart(EnvironmentManagerStorage& storage) ZO_TRY_ACQUIRE(true, storage.start_lock) {
  if (!zo_base::OnLibraryThread()) {
    storage.start_lock.lock();
  } else {
    while (!storage.start_lock.try_lock()) {
      if (storage.exit_in_progress) return false;
      std::this_thread::sleep_for(kStartLockPoll);
    }
  }
  if (!storage.exit_in_progress) return true;
  storage.start_lock.unlock();
  return false;
}

// The id behind the first object. It must be alive for a start to be answered, and no error code
// exists for its absence.
int IdOfLivingObject(EnvironmentManagerStorage& storage) {
  const auto object = storage.objects.Find(kFirstObjectId);
  const auto impl = std::dynamic_pointer_cast<ZOTarvelObjectImpl>(object);
  if (impl == nullptr) __builtin_trap();
  return impl->id();
}

// On a thread that may wait for the lock.
void CarryOutOrQueueExit(EnvironmentManagerStorage& storage, const ExitRequest& request) {
  MutexLock lock(storage.start_lock);
  if (storage.exit_in_progress) {
    storage.exits.Push(request);  // In a callback out of an exit, which goes on with it.
  } else {
    EnvironmentManager(storage).CarryOutExit(request);
  }
}

// Carries out what threads of the library had to queue. Called with no lock held, after the start
// lock was given up: such a thread may have found it taken just before.
void CarryOutQueuedExits(EnvironmentManagerStorage& storage) {
  while (!storage.exits.Empty() && storage.start_lock.try_lock()) {
    // In the middle of an exit, on the same thread: the outer one goes on with the queue.
    const bool nested = storage.exit_in_progress;
    if (!nested) EnvironmentManager(storage).CarryOutQueuedExits();
    storage.start_lock.unlock();
    if (nested) return;
  }
}

}  // namespace

int StartEnvironment(const _ZOTarvelEnvironmentSettings& settings) {
  const auto storage = GetStorage();
  if (storage == nullptr || !LockForStart(*storage)) return 0;
  EnvironmentManager(*storage).CarryOutQueuedExits();  // They are of an earlier life.
  const _ZOTarvelEnvironmentSettings copy = settings;
  storage->once.Call([&] { EnvironmentManager(*storage).Start(copy); });
  ++storage->start_count;
  const int id = IdOfLivingObject(*storage);
  storage->start_lock.unlock();
  CarryOutQueuedExits(*storage);
  return zo_base::InForkedChild() ? 0 : id;  // It may have been forked off out of a log line.
}

IZOTarvelObject* FindObject(std::int32_t id) {
  const auto storage = GetStorage();
  if (storage == nullptr || id == 0) return nullptr;
  return storage->objects.Find(id).get();
}

void RequestExit(const ExitRequest& request) {
  const auto storage = GetStorage();
  if (storage == nullptr) return;
  if (zo_base::OnLibraryThread()) {
    storage->exits.Push(request);
  } else {
    CarryOutOrQueueExit(*storage, request);
  }
  CarryOutQueuedExits(*storage);
}

void EnvironmentManager::Start(const _ZOTarvelEnvironmentSettings& settings) {
  zo_base::SetAtWork(true);
  zo_base::JoinFinishedThreads();  // Those that went down with an earlier environment.
  if (HeldAtExitManager() == nullptr) {
    HeldAtExitManager() = zo_base::GetAtExitManager<zo_base::TarvelObject>().first;
  }
  if (storage_.config == nullptr) storage_.config = std::make_shared<_EnvironmentConfig>();
  storage_.config->Load(settings);
  PublishConfig();
  SetUpLogging(settings.custom_log);
  ZO_LOG << "\r\n------------------- start -------------------";
  ZO_LOG << storage_.config->FormatBanner();
  StartHttpClient();
  StartHttpAgent();
  GetGoalkeeper().Arm();
  storage_.started = true;
  CreateObject();
}

void EnvironmentManager::PublishConfig() {
  MutexLock lock(storage_.published_lock);
  storage_.config_weak = storage_.config;
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
      SIG_NetworkChanged, [weak = std::weak_ptr<HttpClientEx>(client)](zo_net::AddressFamily) {
        if (const auto living = weak.lock()) living->RetireConnections();
      });
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
  const auto object = std::dynamic_pointer_cast<ZOTarvelObjectImpl>(storage_.objects.Find(id));
  if (object == nullptr) return;
  storage_.objects.Erase(id);
  object->Stop();
  object->Release();
}

void EnvironmentManager::CarryOutExit(const ExitRequest& request) {
  CarryOutQueuedExits();
  ExitEnvironment(request);
  CarryOutQueuedExits();
}

void EnvironmentManager::CarryOutQueuedExits() {
  if (zo_base::InForkedChild()) return;
  while (const auto request = storage_.exits.Pop()) ExitEnvironment(*request);
}

void EnvironmentManager::ExitEnvironment(const ExitRequest& request) {
  if (!storage_.started) return;
  const ExitInProgress in_progress(storage_.exit_in_progress);
  if (request.ends_process) storage_.start_count = 1;
  RemoveObject(request.id);
  if (--storage_.start_count >= 1) return;
  if (const auto by_process_exit = GetGoalkeeper().Dismiss()) {
    const bool by_handler = *by_process_exit || request.ends_process;
    ZO_LOG << "do stop by goalkeeper " << (by_handler ? "true" : "false");
  }
  Stop();
  if (zo_base::InForkedChild()) return;
  std::optional<KeptToTheEnd> kept;
  if (request.ends_process) kept.emplace(storage_.objects);
  Exit();
  // Only now have all threads of this library's own ended.
  if (kept && OtherThreadsRun()) {
    static zo_base::NoDestructor<std::vector<KeptToTheEnd>> forever;
    forever->push_back(*std::move(kept));
  }
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
