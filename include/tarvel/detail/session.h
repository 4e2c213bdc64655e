// What a client and the library's callbacks share. Included by client.h only.
#ifndef TARVEL_DETAIL_SESSION_H_
#define TARVEL_DETAIL_SESSION_H_

#include <tarvel/detail/records.h>
#include <tarvel/detail/silence_watch.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace tarvel {
namespace detail {

class Session;

// The session that runs now. The library's log and exception functions have no argument for it, and
// a call of any callback may come late, so all of them look it up here.
struct Registry {
  // Never destroyed: the library may still log while the process exits.
  static Registry& Instance() {
    static Registry* const instance = new Registry;
    return *instance;
  }
  std::shared_ptr<Session> Current() {
    const std::lock_guard<std::mutex> hold(lock);
    return current;
  }
  // Whether this is a child, forked while there was a session: another thread may have held the
  // lock, which then stays held.
  bool IsForkedChild() const {
    const pid_t owner = process.load();
    return owner != 0 && owner != getpid();
  }
  // Returns false when another session runs.
  bool Enter(const std::shared_ptr<Session>& session) {
    const std::lock_guard<std::mutex> hold(lock);
    if (current != nullptr) return false;
    current = session;
    process = getpid();
    return true;
  }
  void Leave(const std::shared_ptr<Session>& session) {
    std::shared_ptr<Session> left;  // Destroyed after the lock is released.
    const std::lock_guard<std::mutex> hold(lock);
    if (current != session) return;
    left.swap(current);
    process = 0;
  }

  std::atomic<pid_t> process{0};  // Of the session; 0 without one.
  std::mutex lock;
  std::shared_ptr<Session> current;  // Guarded by lock.
};

// Whether the present thread is in a callback of the client.
inline bool& InCallback() {
  static thread_local bool in_callback = false;
  return in_callback;
}

// Whether it is in the log function, where locks of the library are held.
inline bool& InLog() {
  static thread_local bool in_log = false;
  return in_log;
}

// One environment, from its start to its end.
//
// Threads: any. Ownership: a client, and each callback that runs, own a share, so a function that
// destroys the client isn't destroyed under itself.
class Session : public std::enable_shared_from_this<Session> {
 public:
  explicit Session(Settings settings) : settings_(std::move(settings)) {}

  // Returns the complaint; empty when the library runs.
  std::string Start() {
    Records records;
    std::string complaint = RecordFiller::Fill(settings_, records);
    if (!complaint.empty()) return complaint;
    if (Registry::Instance().IsForkedChild()) return "this is a forked child";
    if (!Registry::Instance().Enter(shared_from_this())) return "another client runs";
    token_ = settings_.token;
    if (settings_.on_log) records.environment.custom_log = OnLog;
    if (settings_.on_silence) {
      watch_ =
          std::make_shared<SilenceWatch>(settings_.silence, InCallbackOf(settings_.on_silence));
    }
    complaint = RecordFiller::MakeDirectories(settings_);
    if (complaint.empty()) complaint = StartLibrary(records);
    if (!complaint.empty()) Registry::Instance().Leave(shared_from_this());
    return complaint;
  }

  void Stop() {
    if (IsForkedChild()) return;  // It has none of the threads.
    // In the log function a wait could be for a thread that waits for a lock of the logging one.
    if (watch_) watch_->Stop(!InLog());
    zo_tarvel::ExitTarvelEnvironment(id_);
    Registry::Instance().Leave(shared_from_this());
  }

  zo_tarvel::IZOTarvelObject& object() { return *object_; }
  zo_tarvel::IZOTarvelLBSService& service() { return *service_; }

  // Requests go out now, so the end of an update is expected.
  void ExpectUpdate() {
    if (IsForkedChild()) return;
    SetFailed(false);
    if (watch_) watch_->Expect();
  }

  // Returns whether the token is another one than before.
  bool TakeToken(const std::string& token) {
    if (IsForkedChild()) return false;
    const std::lock_guard<std::mutex> lock(lock_);
    return std::exchange(token_, token) != token;
  }

  bool WaitForAnswer(std::chrono::milliseconds limit) {
    if (IsForkedChild()) return false;
    const auto wait = std::clamp(limit, std::chrono::milliseconds(0), kLongestWait);
    const auto end = std::chrono::steady_clock::now() + wait;
    std::uint64_t seen = Changes();
    while (!HasServersAnswer()) {
      std::unique_lock<std::mutex> lock(lock_);
      if (InCallback() || failed_) return false;
      if (!changed_.wait_until(lock, end, [&] { return changes_ != seen; })) return false;
      seen = changes_;
    }
    return true;
  }

  // Reads a string of the answer. calloc() leaves the pages of so large a buffer untouched.
  template <class Read>
  std::string Text(Read read) const {
    if (IsForkedChild()) return {};
    const std::unique_ptr<char, void (*)(void*)> buffer(
        static_cast<char*>(std::calloc(1, zo_tarvel::kLBSTextBufferSize)), std::free);
    if (buffer == nullptr) return {};
    read(*service_, buffer.get());
    return buffer.get();
  }
  std::string Answer() const {
    return Text([](zo_tarvel::IZOTarvelLBSService& service, char* out) {
      service.GetLBSResponse(true, out);
    });
  }

 private:
  class CallbackScope {
   public:
    explicit CallbackScope(bool in_log = false)
        : outer_(std::exchange(InCallback(), true)), outer_log_(InLog()) {
      InLog() = InLog() || in_log;
    }
    ~CallbackScope() {
      InCallback() = outer_;
      InLog() = outer_log_;
    }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

   private:
    const bool outer_;
    const bool outer_log_;
  };

  static std::function<void()> InCallbackOf(std::function<void()> function) {
    return [function = std::move(function)] {
      const CallbackScope scope;
      function();
    };
  }

  bool IsForkedChild() const { return process_ != getpid(); }

  std::uint64_t Changes() {
    const std::lock_guard<std::mutex> lock(lock_);
    return changes_;
  }

  std::string StartLibrary(const Records& records) {
    constexpr int kFirstId = 1;
    if (zo_tarvel::GetTarvelObject(kFirstId) != nullptr) return "another environment runs";
    if (watch_ && !watch_->Start()) return "the system gives no thread";
    id_ = zo_tarvel::StartTarvelEnvironment(records.environment);
    object_ = zo_tarvel::GetTarvelObject(id_);
    service_ = object_ == nullptr ? nullptr : object_->GetLBSService();
    if (service_ == nullptr) {
      if (watch_) watch_->Stop();
      if (id_ != 0) zo_tarvel::ExitTarvelEnvironment(id_);  // 0 would take back another start.
      return "the library can't start here: in its log function, in a forked child, or beside an "
             "exit";
    }
    if (settings_.on_exception) zo_tarvel::SetExceptionDataReporter(OnException);
    service_->SetLBSCallback(OnUpdate, this);
    if (settings_.on_attempt) service_->SetRequestErrorCollector(OnAttempt, this);
    if (settings_.account_id) service_->SetAccIDGetter(WriteAccountId, this);
    ExpectUpdate();
    service_->Init(records.lbs);
    if (HasServersAnswer() && watch_) watch_->Happened();
    return {};
  }

  // The local answer is told by its description.
  bool HasServersAnswer() const {
    const std::string answer = Answer();
    return !answer.empty() && answer.find("\"generated locally\"") == std::string::npos;
  }

  // Whether the last update has failed. Lets WaitForAnswer look again.
  void SetFailed(bool failed) {
    const std::lock_guard<std::mutex> lock(lock_);
    failed_ = failed;
    ++changes_;
    changed_.notify_all();
  }

  // The session of a callback; null when it is over.
  static std::shared_ptr<Session> LivingOf(void* user) {
    auto current = Registry::Instance().Current();
    return current.get() == user ? current : nullptr;
  }

  // The library's callbacks.

  static void OnLog(const char* line) {
    if (const auto self = Registry::Instance().Current()) {
      const CallbackScope scope(true);
      if (self->settings_.on_log) self->settings_.on_log(line);
    }
  }
  static void OnUpdate(std::int32_t code, const char* response, void* user) {
    const auto self = LivingOf(user);
    if (self == nullptr) return;
    const bool fresh = code == 200;
    if (self->watch_) self->watch_->Happened();
    self->SetFailed(!fresh);
    const CallbackScope scope;
    if (self->settings_.on_update) self->settings_.on_update({fresh, TextOf(response)});
  }
  static void OnAttempt(void* user, const zo_tarvel::RequestErrorRecord* record) {
    const auto self = LivingOf(user);
    if (self == nullptr) return;
    const CallbackScope scope;
    self->settings_.on_attempt(
        {record->code, TextOf(record->url), TextOf(record->headers), TextOf(record->body)});
  }
  static void OnException(const ExceptionRecord& record) {
    const auto self = Registry::Instance().Current();
    if (self == nullptr) return;
    const CallbackScope scope;
    if (self->settings_.on_exception) self->settings_.on_exception(record);
  }
  static void WriteAccountId(void* user, char* buffer) {
    const auto self = LivingOf(user);
    if (self == nullptr) return;
    const CallbackScope scope;
    const std::string id = self->settings_.account_id();
    if (id.size() < zo_tarvel::kAccIDBufferSize) id.copy(buffer, id.size());
  }
  static std::string TextOf(const char* text) { return text == nullptr ? "" : text; }

  static constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(24);

  const Settings settings_;
  const pid_t process_ = getpid();
  // Set in Start.
  std::shared_ptr<SilenceWatch> watch_;  // Null without `on_silence`.
  int id_ = 0;
  zo_tarvel::IZOTarvelObject* object_ = nullptr;       // The library's.
  zo_tarvel::IZOTarvelLBSService* service_ = nullptr;  // The library's.

  std::mutex lock_;
  std::condition_variable changed_;
  // Guarded by lock_.
  std::string token_;
  bool failed_ = false;
  std::uint64_t changes_ = 0;  // How often `failed_` was set.
};

}  // namespace detail
}  // namespace tarvel

#endif  // TARVEL_DETAIL_SESSION_H_
